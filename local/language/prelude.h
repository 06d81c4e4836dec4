// Methods of the kernel classes that are written in the language itself.
#pragma once

#include "language/kernel.h"

#include <span>

namespace local {

struct PreludeMethod {
    Oop cls;
    bool classSide;
    const char* source;
};

std::span<const PreludeMethod> preludeMethods();

} // namespace local
