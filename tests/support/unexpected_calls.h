// What a table of function pointers holds until a script gives an entry a meaning.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace scripted {

using AnyFunction = void (*)();

[[noreturn]] inline void unexpectedCall() {
    std::fputs("a function was called that has no script; a debugger tells which\n", stderr);
    std::abort();
}

} // namespace scripted
