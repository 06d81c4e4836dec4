// Runs in a signal handler. hostLearnInstructionRange runs before, in ordinary code; where it did not, the first fault
// asks the loader, which takes the loader's lock.
#include <atomic>
#include <cstdint>
#include <dlfcn.h>
#include <ucontext.h>

#include "host/base/guarantee.h"
#include "host/faults/instructionrange.h"

// The end of this file's image in memory, from the linker.
extern "C" [[gnu::visibility("hidden")]] const char _end[];

namespace {
constexpr char utlModule[] = "hostunix";

// Where this library is loaded; NULL until known.
std::atomic<const char*> loadBase;
} // namespace

void hostLearnInstructionRange() {
    Dl_info own = {};
    const bool known =
        dladdr(reinterpret_cast<const void*>(hostLearnInstructionRange), &own) != 0 && own.dli_fbase != nullptr;
    UTL_GUARANTEE(known);
    if (known) {
        loadBase = static_cast<const char*>(own.dli_fbase);
    }
}

bool hostIsInThisLibrary(const void* address) {
    if (loadBase == nullptr) {
        hostLearnInstructionRange();
    }
    const char* base = loadBase;
    return base != nullptr && address >= base && address < _end;
}

const void* hostInstructionAddress(const void* context) {
    if (context == nullptr) {
        return nullptr;
    }
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
#if defined(__i386__)
    return reinterpret_cast<const void*>(static_cast<uintptr_t>(registers[REG_EIP]));
#else
    return reinterpret_cast<const void*>(static_cast<uintptr_t>(registers[REG_RIP]));
#endif
}
