#include "Platform/PropertyList.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include <plist/plist.h>

#include "Support/Json.hpp"

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

// How deeply the dictionaries and arrays of an XML plist nest, told from
// their tags alone. Comments, CDATA sections, processing instructions and
// the doctype are passed over, so that tags written inside them count for
// nothing; in text, "<" is always escaped. Stops counting once past `limit`.
int xmlNestingDepth(std::string_view text, int limit) {
    int depth = 0, deepest = 0;
    auto skipPast = [&](std::size_t& at, std::string_view end) {
        const std::size_t found = text.find(end, at);
        at = found == std::string_view::npos ? text.size() : found + end.size();
    };
    std::size_t at = 0;
    while ((at = text.find('<', at)) != std::string_view::npos) {
        const std::string_view rest = text.substr(at);
        if (rest.starts_with("<!--")) {
            skipPast(at, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            skipPast(at, "]]>");
        } else if (rest.starts_with("<?")) {
            skipPast(at, "?>");
        } else {
            const bool closing = rest.starts_with("</");
            const std::string_view name = rest.substr(closing ? 2 : 1);
            std::size_t end = at;
            skipPast(end, ">");
            const bool container = (name.starts_with("dict") || name.starts_with("array")) &&
                                   name.size() > (name.starts_with("dict") ? 4u : 5u) &&
                                   std::string_view(" \t\r\n/>").find(name[name.starts_with("dict") ? 4 : 5]) !=
                                       std::string_view::npos;
            const bool selfClosing = end >= 2 && text[end - 2] == '/';
            if (container && closing) {
                depth = std::max(depth - 1, 0);
            } else if (container && !selfClosing) {
                deepest = std::max(deepest, ++depth);
                if (deepest > limit) return deepest;
            }
            at = end;
        }
    }
    return deepest;
}

// How deeply the containers (arrays, sets, dictionaries) of a binary plist
// nest below its top object, or nothing for a table that cannot be read or
// whose references go round in a circle. An object referred to from several
// places is measured once. Stops once past `limit`.
std::optional<int> binaryNestingDepth(std::string_view bytes, int limit) {
    constexpr std::uint64_t trailerSize = 32;
    if (bytes.size() < 8 + trailerSize) return std::nullopt;
    const std::uint64_t trailer = bytes.size() - trailerSize;
    const auto offsetSize = bigEndian(bytes, trailer + 6, 1);
    const auto referenceSize = bigEndian(bytes, trailer + 7, 1);
    const auto objectCount = bigEndian(bytes, trailer + 8, 8);
    const auto topObject = bigEndian(bytes, trailer + 16, 8);
    const auto tableOffset = bigEndian(bytes, trailer + 24, 8);
    if (!offsetSize || !referenceSize || !objectCount || !topObject || !tableOffset || *offsetSize == 0 ||
        *offsetSize > 8 || *referenceSize == 0 || *referenceSize > 8 || *topObject >= *objectCount ||
        *tableOffset > trailer || *objectCount > (trailer - *tableOffset) / *offsetSize) {
        return std::nullopt;
    }

    // Where an object's references start and how many it has (none for
    // anything but a container).
    struct References {
        std::uint64_t start = 0, count = 0;
    };
    auto referencesOf = [&](std::uint64_t index) -> std::optional<References> {
        const auto offset = bigEndian(bytes, *tableOffset + index * *offsetSize, *offsetSize);
        if (!offset || *offset >= trailer) return std::nullopt;
        const auto marker = static_cast<unsigned char>(bytes[*offset]);
        const unsigned type = marker >> 4;
        if (type < 0xA || type > 0xD) return References{};
        std::uint64_t count = marker & 0x0F, start = *offset + 1;
        if (count == 0x0F) {
            const auto intMarker = bigEndian(bytes, start, 1);
            if (!intMarker || (*intMarker >> 4) != 0x1 || (*intMarker & 0x0F) > 3) return std::nullopt;
            const std::uint64_t width = std::uint64_t{1} << (*intMarker & 0x0F);
            const auto value = bigEndian(bytes, start + 1, width);
            if (!value) return std::nullopt;
            count = *value;
            start += 1 + width;
        }
        if (type == 0xD) {
            if (count > std::numeric_limits<std::uint64_t>::max() / 2) return std::nullopt;
            count *= 2; // keys, then values
        }
        if (start > trailer || count > (trailer - start) / *referenceSize) return std::nullopt;
        return References{start, count};
    };

    constexpr int unmeasured = -1, measuring = -2;
    std::vector<int> heights(static_cast<std::size_t>(*objectCount), unmeasured);
    struct Frame {
        std::uint64_t index;
        References references;
        std::uint64_t next = 0;
        int tallest = 0; // of the children measured so far
    };
    std::vector<Frame> stack;
    // A container goes on the stack to be measured; anything else is
    // measured at once, as 0.
    auto enter = [&](std::uint64_t index) {
        const auto references = referencesOf(index);
        if (!references) return false;
        if (references->start == 0) {
            heights[index] = 0;
        } else {
            heights[index] = measuring;
            stack.push_back(Frame{index, *references});
        }
        return true;
    };
    if (!enter(*topObject)) return std::nullopt;
    while (!stack.empty()) {
        if (static_cast<int>(stack.size()) > limit) return static_cast<int>(stack.size());
        Frame& frame = stack.back();
        if (frame.next == frame.references.count) {
            const int height = heights[frame.index] = frame.tallest + 1;
            stack.pop_back();
            if (!stack.empty()) stack.back().tallest = std::max(stack.back().tallest, height);
            continue;
        }
        const auto child = bigEndian(bytes, frame.references.start + frame.next * *referenceSize, *referenceSize);
        ++frame.next;
        if (!child || *child >= *objectCount || heights[*child] == measuring) return std::nullopt;
        if (heights[*child] == unmeasured) {
            if (!enter(*child)) return std::nullopt;
        } else {
            frame.tallest = std::max(frame.tallest, heights[*child]);
        }
    }
    return heights[*topObject];
}

} // namespace

std::optional<Json> parse(std::string_view bytes) {
    if (bytes.empty()) return std::nullopt;
    // The two readers exist with one signature in every libplist release we
    // build against (plist_from_memory gained an argument in 2.3).
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    plist_t root = nullptr;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    // libplist reads and frees a document recursively, and so does convert()
    // below: the nesting is measured first, without recursion.
    if (plist_is_binary(bytes.data(), length)) {
        const auto depth = binaryNestingDepth(bytes, maximumNestingDepth);
        if (!depth || *depth > maximumNestingDepth || !binaryPlistIsSafeForLibplist(bytes)) return std::nullopt;
        plist_from_bin(bytes.data(), length, &root);
    } else {
        if (xmlNestingDepth(bytes, maximumNestingDepth) > maximumNestingDepth) return std::nullopt;
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
