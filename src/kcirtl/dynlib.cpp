#include "dynlib.h"

#include "kcirtl/libraryfile.h"

#include <cfenv>
#include <cstdio>
#include <dlfcn.h>

namespace {

constexpr char noReason[] = "(no error info returned)";

// A library's initializers run inside dlopen and may change rounding, precision or exception masks; the Java virtual
// machine depends on them.
class FloatingPointKeeper {
public:
    FloatingPointKeeper() { fegetenv(&environment); }
    ~FloatingPointKeeper() { fesetenv(&environment); }
    FloatingPointKeeper(const FloatingPointKeeper&) = delete;
    FloatingPointKeeper& operator=(const FloatingPointKeeper&) = delete;

private:
    fenv_t environment;
};

} // namespace

BoolType DynLibLoad(const char* name, DynLibType* resultPtr, char* err, ArraySizeType errSize) {
    DynLibType handle = nullptr;
    const char* reason = "the file name is too long";
    char buffer[libraryFileNameSize];
    if (const char* const file = libraryFileName(name, buffer)) {
        name = file;
        const FloatingPointKeeper keeper;
        handle = dlopen(name, RTLD_LAZY | RTLD_GLOBAL | RTLD_DEEPBIND);
        if (handle == nullptr) {
            reason = dlerror();
        }
    }
    if (handle == nullptr) {
        if (reason != nullptr) {
            printf("[Debug]: dlopen(%s) failure: %s\n", name, reason);
        } else {
            reason = noReason;
        }
        if (err != nullptr) {
            snprintf(err, errSize, "dlopen(%s) failed because %s", name, reason);
        }
    }
    *resultPtr = handle;
    return handle != nullptr ? TRUE : FALSE;
}

void DynLibUnload(DynLibType dl) {
    dlclose(dl);
}

DynLibFuncPtr DynLibGetFunc(DynLibType dl, const char* funcname, char* err, ArraySizeType errSize) {
    void* symbol = dlsym(dl, funcname);
    if (symbol == nullptr) {
        const char* reason = dlerror();
        if (err != nullptr) {
            snprintf(err, errSize, "dlsym(%s) failed because %s", funcname, reason != nullptr ? reason : noReason);
        }
    }
    return reinterpret_cast<DynLibFuncPtr>(symbol);
}
