/*
 * A chain of jump buffers across deep chains of calls. Whoever can recover from an error registers a buffer; whoever
 * meets the error unwinds to the innermost one, with a kind.
 *
 *     UnwindJmpBufSType buffer;
 *     buffer.previous = UnwindGetCurrentJumpBuffer();
 *     if (_setjmp(buffer.buf) == 0) {
 *         UnwindSetCurrentJumpBuffer(&buffer);
 *         ... UnwindDoUnwind(UNWIND_ERR) in a call below ends in the branch below ...
 *     } else {
 *         ... UnwindGetExceptionVal() says which kind it was ...
 *     }
 *     UnwindSetCurrentJumpBuffer(buffer.previous);
 *
 * The buffer stays registered until the function that registered it takes it off, which it must do before it returns.
 * No destructor of a C++ frame in between runs. The chain is one for the process: only one thread at a time may use it.
 * Not signal-safe.
 */
#ifndef TMQKCI_HOSTUNWIND_H
#define TMQKCI_HOSTUNWIND_H

#include <setjmp.h>

#include "kcitypes.h"

typedef enum UnwindKindEType {
    UNWIND_NO_SIGNAL = 0,
    UNWIND_ERR = 1,
    UNWIND_ABORT_DEBUG_CMD = 2,
    UNWIND_EXIT_DEBUGGER = 3,
    UNWIND_END_EXECUTION = 4,
    UNWIND_VELT_JMP = 5,
    UNWIND_RESTART = 6,
    UNWIND_TRNDO_JMP = 7,
    UNWIND_SERV_TXT_FILE_TO_OOP_JMP = 8,
    UNWIND_EGS_BUILD_MSG_JMP = 9,
    UNWIND_KCI_ERR = 10,
    UNWIND_INTERP_EXCEPTION = 11,
    UNWIND_START_THREAD = 12,
    UNWIND_CONTINUE_RETURNED = 13,
    UNWIND_LOST_OT = 14
} UnwindKindEType;

typedef struct unwindbuftype {
    jmp_buf buf;
    struct unwindbuftype* previous; /* the next outer buffer, NULL for the outermost */
} UnwindJmpBufSType;

TMQKCI_C_BEGIN

/* Pages that the owner of the chain has pinned; unwinding while there are any is a guarantee failure. */
extern TMQKCI_DATA volatile int UnwindTotalPinnedPages;
extern TMQKCI_DATA void* volatile UnwindLastPagePinned;

/* The innermost buffer, NULL for none. It stays the caller's. */
TMQKCI_API UnwindJmpBufSType* UnwindGetCurrentJumpBuffer(void);
TMQKCI_API void UnwindSetCurrentJumpBuffer(UnwindJmpBufSType* buffer);

/* The kind of the latest unwind. */
TMQKCI_API UnwindKindEType UnwindGetExceptionVal(void);
TMQKCI_API void UnwindSetExceptionVal(int val);

/*
 * Jumps to the innermost buffer, where _setjmp returns val (1 for 0); the signal mask stays as it is. Without a buffer
 * it says so on standard error and reports a fatal error, and returns if that does.
 */
TMQKCI_API void UnwindDoUnwind(int val);

/* The same behind a line on standard output that tells the kind and the place, cut to 149 characters. */
TMQKCI_API void UnwindDoTraceUnwind(int kind, const char* file, int line);

/* Ends the use of the chain: nothing to do. */
TMQKCI_API void UnwindEnd(void);

/*
 * Reports a guarantee failure when this thread must not leave its call by a jump: while it runs a signal handler of the
 * host services (the handler that was there before, which it passes a signal on to, may), and while it holds the
 * heap's mutex or the message catalogue's.
 */
TMQKCI_API void UtlCheckUnwindAllowed(void);

TMQKCI_C_END

#endif
