#include "errmsg.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>

#include "err/errcatalogue.h"
#include "err/errformat.h"
#include "hostdebug.h"
#include "utlheap.h"
#include "utlhost.h"

namespace {

constexpr size_t maxSymbol = 255;
constexpr char UserErrTxt[] = "errmsg.userErrTxt";
constexpr char InvalidErrNumMsgTxt[] = "errmsg.invalidErr";

BoolType resetLocked() {
    const BoolType opened = ErrUtlReset(FALSE);
    if (opened)
        errMsgForgetLookups();
    errMsgSetPanicked(!opened);
    return opened;
}

bool lookUp(const char* sym, ErrUtlEntrySType& entry) {
    PendingHooks hooks;
    bool found = false;
    {
        ErrMsgAccessor accessor(printMutex());
        found = findErrSym(sym, entry, hooks);
    }
    hooks.run();
    return found;
}

// Copies at most size - 1 characters.
void copyCut(std::string_view text, char* destination, size_t size) {
    destination[text.copy(destination, size - 1)] = 0;
    destination[size - 1] = 0;
}

} // namespace

void ErrMsgInit() {
    ErrMsgAccessor accessor(printMutex());
    errMsgSetPanicked(false);
    if (ErrUtlInit(TRUE, nullptr))
        resetLocked();
    else
        errMsgSetPanicked(true);
}

BoolType ErrMsgReset() {
    ErrMsgAccessor accessor(printMutex());
    return resetLocked();
}

void ErrMsgShutdown() {
    ErrMsgAccessor accessor(printMutex());
    ErrUtlShutdown();
    errMsgSetPanicked(true);
}

BoolType ErrMsgGetPanicked() {
    ErrMsgAccessor accessor(printMutex());
    return errMsgPanicked() ? TRUE : FALSE;
}

void ErrMsgSetPanicked(BoolType panicked) {
    ErrMsgAccessor accessor(printMutex());
    errMsgSetPanicked(panicked != FALSE);
}

char* ErrMsgGetString(const char* sym) {
    ErrUtlEntrySType entry;
    if (!lookUp(sym, entry))
        return nullptr;
    // Not under the mutex: a report of the heap asks for messages.
    char* const string = static_cast<char*>(UtlMalloc(static_cast<unsigned>(strlen(entry.buf)) + 1, "ErrMsgGetString"));
    if (!string)
        return nullptr;
    char* end = string;
    for (const char* from = entry.buf; *from; ++from) {
        if (from[0] == '\\' && (from[1] == 'n' || from[1] == '\\')) {
            ++from;
            *end++ = *from == 'n' ? '\n' : '\\';
        } else {
            *end++ = *from;
        }
    }
    *end = 0;
    return string;
}

void ErrMsgBuildString(const char* sym, char* buf, ArraySizeType bufSize, const char* kinds, va_list ap) {
    const MessageArgs args(kinds, ap);
    if (strlen(sym) > maxSymbol) {
        ErrMsgSetPanicked(TRUE);
        fputs("errmsg|buildString:  Error symbol too long\n", stderr);
        HostCallDebugger();
    }
    if (bufSize == 0)
        return;

    ErrUtlEntrySType entry;
    if (errMsgPanicked() || !lookUp(sym, entry)) {
        memset(buf, 0, bufSize);
        desperateErr(sym, nullptr, buf, bufSize, args);
        return;
    }
    // Built aside: an argument may stand in the caller's buffer.
    ErrMsgStrType work;
    if (args.given > static_cast<size_t>(entry.expectedArgCount)) {
        desperateErr(sym, entry.buf, work, ERRMSG_STR_SIZE - 1, args);
    } else {
        TextSink out(work, maxMessageText);
        mySprintf(out, entry, args);
    }
    copyCut(work, buf, bufSize);
}

void ErrMsgSymToText(const char* sym, char* buf, ArraySizeType bufSize, const char* kinds, ...) {
    va_list ap;
    va_start(ap, kinds);
    ErrMsgBuildString(sym, buf, bufSize, kinds, ap);
    va_end(ap);
}

void ErrMsgSymToFile(const char* sym, FILE* f, const char* kinds, ...) {
    ErrMsgStrType text;
    va_list ap;
    va_start(ap, kinds);
    ErrMsgBuildString(sym, text, sizeof text, kinds, ap);
    va_end(ap);
    UtlTimeStampMs_s(f, text, 0);
    fflush(f);
}

void ErrMsgSymToFileNoTimeStamp(const char* sym, FILE* f, const char* kinds, ...) {
    ErrMsgStrType text;
    va_list ap;
    va_start(ap, kinds);
    ErrMsgBuildString(sym, text, sizeof text, kinds, ap);
    va_end(ap);
    fputs(text, f);
    fflush(f);
}

void ErrMsgSymToFile_1(const char* fmt, FILE* f, const char* s1) {
    char text[1024];
    snprintf(text, sizeof text, fmt, s1);
    UtlTimeStampMs_s(f, text, 0);
}

void ErrMsgSymToFile_2(const char* fmt, FILE* f, const char* s1, const char* s2) {
    char text[1024];
    snprintf(text, sizeof text, fmt, s1, s2);
    UtlTimeStampMs_s(f, text, 0);
}

const char* ErrMsgNumToSym(int errNum) {
    const char* const sym = ErrMsgGsErrNumToSym(errNum);
    return sym ? sym : InvalidErrNumMsgTxt;
}

void ErrMsgToTxt(OopType category, int number, char* dst, ArraySizeType dstSize) {
    if (category == KCI_CATEGORY_SYSTEM) {
        ErrMsgSymToText(ErrMsgNumToSym(number), dst, dstSize, nullptr);
    } else if (dstSize > 0) {
        // Kept: callers depend on the symbol itself.
        memset(dst, 0, dstSize);
        copyCut(UserErrTxt, dst, dstSize);
    }
}
