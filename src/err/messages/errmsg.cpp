#include "errmsg.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "err/messages/errcatalogue.h"
#include "utlhost.h"

namespace {

constexpr char UserErrTxt[] = "errmsg.userErrTxt";
constexpr char InvalidErrNumMsgTxt[] = "errmsg.invalidErr";

BoolType resetLocked() {
    // Every fork resets the catalogue. Where no file was ever named there is nothing to say about one.
    const bool opened = ErrUtlErrFileName[0] != '\0' && ErrUtlReset(FALSE) != FALSE;
    if (opened) {
        errMsgForgetLookups();
    }
    errMsgSetPanicked(!opened);
    return opened ? TRUE : FALSE;
}

} // namespace

void ErrMsgInit() {
    ErrMsgAccessor accessor(printMutex());
    errMsgSetPanicked(false);
    if (ErrUtlInit(TRUE, nullptr)) {
        resetLocked();
    } else {
        errMsgSetPanicked(true);
    }
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

namespace {
constexpr size_t stampedTextSize = 1024; // a longer text is cut
}

void ErrMsgSymToFile_1(const char* fmt, FILE* f, const char* s1) {
    char text[stampedTextSize];
    snprintf(text, sizeof text, fmt, s1);
    UtlTimeStampMs_s(f, text, 0);
}

void ErrMsgSymToFile_2(const char* fmt, FILE* f, const char* s1, const char* s2) {
    char text[stampedTextSize];
    snprintf(text, sizeof text, fmt, s1, s2);
    UtlTimeStampMs_s(f, text, 0);
}

const char* ErrMsgNumToSym(int errNum) {
    const char* const sym = ErrMsgGsErrNumToSym(errNum);
    return sym != nullptr ? sym : InvalidErrNumMsgTxt;
}

void ErrMsgToTxt(OopType category, int number, char* dst, ArraySizeType dstSize) {
    if (category == KCI_CATEGORY_SYSTEM) {
        ErrMsgSymToText(ErrMsgNumToSym(number), dst, dstSize, nullptr);
    } else if (dstSize > 0) {
        // kept: callers look for the symbol itself in place of a text.
        memset(dst, 0, dstSize);
        memcpy(dst, UserErrTxt, std::min<size_t>(sizeof UserErrTxt, dstSize) - 1);
    }
}
