#include "Platform/PropertyList.hpp"

#include "Support/Json.hpp"

#include <cstdint>
#include <cstdlib>
#include <limits>

#include <plist/plist.h>

namespace unbulk::PropertyList {
namespace {

Json convert(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        Json object = Json::object();
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iterator, &key, &value);
            if (key == nullptr) break;
            object[key] = convert(value);
            std::free(key);
        }
        std::free(iterator);
        return object;
    }
    case PLIST_ARRAY: {
        Json array = Json::array();
        for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
            array.push_back(convert(plist_array_get_item(node, i)));
        }
        return array;
    }
    case PLIST_STRING: {
        // The pointer form, not plist_get_string_val: a binary plist may hold
        // a string with a NUL inside, which that call asserts against.
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return Json(text != nullptr ? std::string(text, static_cast<std::size_t>(length)) : std::string());
    }
    case PLIST_BOOLEAN: {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return Json(value != 0);
    }
    case PLIST_UINT: { // also the signed integers of newer libplist (PLIST_INT is the same type)
        std::uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return Json(static_cast<std::int64_t>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return Json(value);
    }
    default:
        // Dates, data and UIDs: present, but of no type a reader here takes.
        return Json(nullptr);
    }
}

// Big-endian unsigned integer of `width` bytes at `at`, if it fits in `bytes`.
std::optional<std::uint64_t> bigEndian(std::string_view bytes, std::uint64_t at, std::uint64_t width) {
    if (width == 0 || width > 8 || at > bytes.size() || width > bytes.size() - at) return std::nullopt;
    std::uint64_t value = 0;
    for (std::uint64_t i = 0; i < width; ++i) value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

// libplist (2.2 at least) asserts, and so stops the whole process, when a
// dictionary key holds a NUL, which a binary plist can encode as a UTF-16
// string with a U+0000 unit. No real Info.plist or launch agent has one, so a
// binary plist with such a string anywhere in its object table, or with a
// table that cannot be read, is treated as unreadable before libplist sees it.
bool binaryPlistIsSafeForLibplist(std::string_view bytes) {
    constexpr std::uint64_t headerSize = 8, trailerSize = 32;
    if (bytes.size() < headerSize + trailerSize) return false;
    const std::uint64_t trailer = bytes.size() - trailerSize;
    const auto offsetSize = bigEndian(bytes, trailer + 6, 1);
    const auto objectCount = bigEndian(bytes, trailer + 8, 8);
    const auto tableOffset = bigEndian(bytes, trailer + 24, 8);
    if (!offsetSize || !objectCount || !tableOffset || *offsetSize == 0 || *offsetSize > 8) return false;
    if (*tableOffset > trailer || *objectCount > (trailer - *tableOffset) / *offsetSize) return false;
    for (std::uint64_t index = 0; index < *objectCount; ++index) {
        const auto offset = bigEndian(bytes, *tableOffset + index * *offsetSize, *offsetSize);
        if (!offset || *offset >= trailer) return false;
        const auto marker = static_cast<unsigned char>(bytes[*offset]);
        if ((marker >> 4) != 0x6) continue; // only UTF-16 strings can carry a NUL into a key
        std::uint64_t units = marker & 0x0F;
        std::uint64_t start = *offset + 1;
        if (units == 0x0F) { // the count follows as an integer object
            const auto intMarker = bigEndian(bytes, start, 1);
            if (!intMarker || (*intMarker >> 4) != 0x1 || (*intMarker & 0x0F) > 3) return false;
            const std::uint64_t width = std::uint64_t{1} << (*intMarker & 0x0F);
            const auto count = bigEndian(bytes, start + 1, width);
            if (!count) return false;
            units = *count;
            start += 1 + width;
        }
        if (start > trailer || units > (trailer - start) / 2) return false;
        for (std::uint64_t unit = 0; unit < units; ++unit) {
            if (bytes[start + 2 * unit] == '\0' && bytes[start + 2 * unit + 1] == '\0') return false;
        }
    }
    return true;
}

} // namespace

std::optional<Json> parse(std::string_view bytes) {
    if (bytes.empty()) return std::nullopt;
    // The two readers exist with one signature in every libplist release we
    // build against (plist_from_memory gained an argument in 2.3).
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    plist_t root = nullptr;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    if (plist_is_binary(bytes.data(), length)) {
        if (!binaryPlistIsSafeForLibplist(bytes)) return std::nullopt;
        plist_from_bin(bytes.data(), length, &root);
    } else {
        plist_from_xml(bytes.data(), length, &root);
    }
    if (root == nullptr) return std::nullopt;
    Json result = convert(root);
    plist_free(root);
    return result;
}

Json parseDictionary(std::string_view bytes) {
    auto document = parse(bytes);
    return document && document->is_object() ? *document : Json::object();
}

} // namespace unbulk::PropertyList
