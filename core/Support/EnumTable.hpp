#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <nlohmann/json_fwd.hpp>

namespace unbulk {

// Every enumeration keeps its raw values, and whatever else it carries
// (display names, icons, ...), in one constexpr table of rows, one row per
// case in declaration order. A row's first two members are `value` and
// `rawValue`. The enumeration opts in by naming its table and its type name:
//
//   template <> struct EnumTable<RiskTier> {
//       static constexpr std::string_view name = "RiskTier";
//       static constexpr const auto& rows = riskTierTable;
//   };
//
// and then gets, from that table alone: info(e) (its row), rawValue(e),
// fromRawValue<E>(raw), allCases<E>(), and its JSON form as the raw value.
// A table out of declaration order does not compile.
template <typename E>
struct EnumTable;

template <typename E>
concept TabledEnum = std::is_enum_v<E> && requires {
    EnumTable<E>::rows;
    EnumTable<E>::name;
};

namespace enum_table_detail {

template <typename E>
constexpr bool inDeclarationOrder() {
    const auto& rows = EnumTable<E>::rows;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (static_cast<std::size_t>(rows[i].value) != i) return false;
    }
    return true;
}

template <typename E>
constexpr std::size_t caseCount = std::tuple_size_v<std::remove_cvref_t<decltype(EnumTable<E>::rows)>>;

} // namespace enum_table_detail

template <TabledEnum E>
constexpr const auto& info(E value) {
    static_assert(enum_table_detail::inDeclarationOrder<E>(), "the table's rows must follow the declaration order");
    return EnumTable<E>::rows[static_cast<std::size_t>(value)];
}

template <TabledEnum E>
constexpr std::string_view rawValue(E value) {
    return info(value).rawValue;
}

template <TabledEnum E>
    requires requires(E value) { info(value).displayName; }
constexpr std::string_view displayName(E value) {
    return info(value).displayName;
}

// The exact reading, like a raw-value initialiser: nothing for an unknown text.
template <TabledEnum E>
constexpr std::optional<E> fromRawValue(std::string_view raw) {
    for (const auto& row : EnumTable<E>::rows) {
        if (row.rawValue == raw) return row.value;
    }
    return std::nullopt;
}

// Every case, in declaration order.
template <TabledEnum E>
constexpr std::array<E, enum_table_detail::caseCount<E>> allCases() {
    std::array<E, enum_table_detail::caseCount<E>> out{};
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = EnumTable<E>::rows[i].value;
    return out;
}

namespace enum_table_detail {

// The body of from_json, on a JSON type that is a template parameter, so that
// this header needs only json_fwd.hpp: it is compiled where a value is read.
template <typename BasicJson, TabledEnum E>
void readRawValue(const BasicJson& j, E& value) {
    const auto raw = j.template get<std::string>();
    const std::optional<E> parsed = fromRawValue<E>(raw);
    if (!parsed) {
        throw BasicJson::other_error::create(
            501, "Cannot initialize " + std::string(EnumTable<E>::name) + " from invalid raw value " + raw, nullptr);
    }
    value = *parsed;
}

// The body of to_json, for the same reason: an assignment to nlohmann::json
// itself is not dependent, and clang judges it where the template is defined,
// where the type is still incomplete.
template <typename BasicJson, TabledEnum E>
void writeRawValue(BasicJson& j, E value) {
    j = std::string(rawValue(value));
}

} // namespace enum_table_detail

// The JSON form is the raw value. Reading anything else throws
// nlohmann::json::exception naming the type and the text. The exact
// nlohmann::json parameter makes these more specialised than the library's
// own enum-as-integer conversion, so they are the ones chosen.
template <TabledEnum E>
void to_json(nlohmann::json& j, E value) {
    enum_table_detail::writeRawValue(j, value); // compiled where JSON is complete
}

template <TabledEnum E>
void from_json(const nlohmann::json& j, E& value) {
    enum_table_detail::readRawValue(j, value);
}

} // namespace unbulk
