// Tables of function pointers whose every entry stops the program until a script gives it a meaning.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace scripted {

using AnyFunction = void (*)();

template <typename Table, std::size_t Entry>
void unexpectedCall() {
    std::fprintf(stderr, "%s: entry %zu was called, which has no script\n", Table::name, Entry);
    std::abort();
}

template <typename Table, std::size_t... Entry>
constexpr auto unexpectedCalls(std::index_sequence<Entry...>) {
    return std::array<AnyFunction, sizeof...(Entry)>{&unexpectedCall<Table, Entry>...};
}

} // namespace scripted
