#include "failing_malloc.h"

#include <cstdint>
#include <cstdlib>

MallocControl mallocControl;

extern "C" void* __real_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size) {
    MallocControl& control = mallocControl;
    ++control.calls;
    control.lastSize = size;
    if (size > PTRDIFF_MAX)
        return nullptr; // as the C library does; a sanitizer would end the process
    if (control.failAt != 0 &&
        (control.calls == control.failAt || (control.failFromThere && control.calls > control.failAt)))
        return nullptr;
    return __real_malloc(size);
}
