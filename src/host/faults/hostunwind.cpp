#include "hostunwind.h"

#include <array>
#include <cstdio>

#include "host/base/guarantee.h"
#include "host/signals/handlerscope.h"
#include "hostdebug.h"
#include "utlhost.h"

volatile int UnwindTotalPinnedPages;
void* volatile UnwindLastPagePinned;

namespace {
constexpr char utlModule[] = "unwind";

UnwindJmpBufSType* UnwindCurrentJumpBuffer;
volatile UnwindKindEType UnwindExceptionVal;

constexpr std::array<const char*, UNWIND_LOST_OT + 1> kindNames{
    "UNWIND_NO_SIGNAL",
    "UNWIND_ERR",
    "UNWIND_ABORT_DEBUG_CMD",
    "UNWIND_EXIT_DEBUGGER",
    "UNWIND_END_EXECUTION",
    "UNWIND_VELT_JMP",
    "UNWIND_RESTART",
    "UNWIND_TRNDO_JMP",
    "UNWIND_SERV_TXT_FILE_TO_OOP_JMP",
    "UNWIND_EGS_BUILD_MSG_JMP",
    "UNWIND_KCI_ERR",
    "UNWIND_INTERP_EXCEPTION",
    "UNWIND_START_THREAD",
    "UNWIND_CONTINUE_RETURNED",
    "UNWIND_LOST_OT",
};

const char* unwindKindToString(int kind) {
    const bool known = kind >= 0 && kind < static_cast<int>(kindNames.size());
    UTL_GUARANTEE(known);
    return known ? kindNames[kind] : "unknown";
}
} // namespace

UnwindJmpBufSType* UnwindGetCurrentJumpBuffer() {
    return UnwindCurrentJumpBuffer;
}

void UnwindSetCurrentJumpBuffer(UnwindJmpBufSType* buffer) {
    UnwindCurrentJumpBuffer = buffer;
}

UnwindKindEType UnwindGetExceptionVal() {
    return UnwindExceptionVal;
}

void UnwindSetExceptionVal(int val) {
    UnwindExceptionVal = static_cast<UnwindKindEType>(val);
}

void UnwindDoUnwind(int val) {
    UtlCheckUnwindAllowed();
    UTL_GUARANTEE(UnwindTotalPinnedPages == 0);
    if (UnwindCurrentJumpBuffer != nullptr) {
        UnwindSetExceptionVal(val);
        HandlerScope::leave();
        _longjmp(UnwindCurrentJumpBuffer->buf, val);
    }
    fputs("UNWIND called with no handler!\n", stderr);
    fflush(stderr);
    HostCallDebugger();
}

void UnwindDoTraceUnwind(int kind, const char* file, int line) {
    constexpr size_t lineSize = 150;
    char text[lineSize];
    snprintf(text, sizeof text, "[DEBUG]: Unwind(%s) called from line %d in %s", unwindKindToString(kind), line, file);
    UtlTimeStampMs_s(stdout, text, 0);
    fflush(stdout);
    UnwindDoUnwind(kind);
}

void UnwindEnd() {}
