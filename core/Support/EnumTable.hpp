#pragma once

#include <cstddef>

namespace unbulk {

// Every enumeration keeps its raw values and names in one constexpr table
// indexed by the enumeration's value. This checks, at compile time, that a
// table is in declaration order: static_assert(inDeclarationOrder(table, &Info::member)).
template <typename Table, typename Member>
constexpr bool inDeclarationOrder(const Table& table, Member member) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (static_cast<std::size_t>(table[i].*member) != i) return false;
    }
    return true;
}

} // namespace unbulk
