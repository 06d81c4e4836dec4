// Runs in a signal handler; takes no lock without a limit, and allocates nothing.
#include <cstdarg>
#include <ctime>
#include <pthread.h>

#include "err/errcatalogue.h"
#include "err/errformat.h"
#include "errmsg.h"
#include "host/fatalreport.h"
#include "vermsg.h"

namespace {
// Far longer than any thread that runs keeps the mutex.
constexpr long longestWaitNanoseconds = 200'000'000;

bool catalogueIsFree() {
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_nsec += longestWaitNanoseconds;
    deadline.tv_sec += deadline.tv_nsec / 1'000'000'000;
    deadline.tv_nsec %= 1'000'000'000;
    if (pthread_mutex_timedlock(printMutex(), &deadline) != 0)
        return false;
    pthread_mutex_unlock(printMutex());
    return true;
}

void buildText(const char* sym, char* buf, unsigned size, const char* kinds, va_list arguments) {
    if (errMsgPanicked() || catalogueIsFree()) {
        ErrMsgBuildString(sym, buf, size, kinds, arguments);
    } else {
        const MessageArgs args(kinds, arguments);
        TextSink text(buf, size - 1);
        desperateErr(text, sym, nullptr, args);
        text.terminate();
    }
}
} // namespace

void hostReportText(const char* sym, char* buf, unsigned size, const char* kinds, ...) {
    va_list arguments;
    va_start(arguments, kinds);
    buildText(sym, buf, size, kinds, arguments);
    va_end(arguments);
}

void hostReportLine(FILE* f, const char* sym, const char* kinds, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, kinds);
    buildText(sym, text, sizeof text, kinds, arguments);
    va_end(arguments);
    VerMessage(f, text);
}
