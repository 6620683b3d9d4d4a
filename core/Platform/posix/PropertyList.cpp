#include "Platform/PropertyList.hpp"

#include <cstdint>
#include <cstdlib>

#include <plist/plist.h>

namespace unbulk::PropertyList {
namespace {

std::optional<Json> convert(plist_t node) {
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
            if (auto converted = convert(value)) object[key] = std::move(*converted);
            std::free(key);
        }
        std::free(iterator);
        return object;
    }
    case PLIST_ARRAY: {
        Json array = Json::array();
        for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
            if (auto converted = convert(plist_array_get_item(node, i))) array.push_back(std::move(*converted));
        }
        return array;
    }
    case PLIST_STRING: {
        char* text = nullptr;
        plist_get_string_val(node, &text);
        Json value = text != nullptr ? std::string(text) : std::string();
        std::free(text);
        return value;
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
    default: return std::nullopt;
    }
}

} // namespace

std::optional<Json> parse(std::string_view bytes) {
    if (bytes.empty()) return std::nullopt;
    // The two readers exist with one signature in every libplist release we
    // build against (plist_from_memory gained an argument in 2.3).
    plist_t root = nullptr;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    if (plist_is_binary(bytes.data(), length)) {
        plist_from_bin(bytes.data(), length, &root);
    } else {
        plist_from_xml(bytes.data(), length, &root);
    }
    if (root == nullptr) return std::nullopt;
    std::optional<Json> result = convert(root);
    plist_free(root);
    return result;
}

Json parseDictionary(std::string_view bytes) {
    auto document = parse(bytes);
    return document && document->is_object() ? *document : Json::object();
}

} // namespace unbulk::PropertyList
