// The reader of message files: the input is the file.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "errmsg.h"
#include "quiet.h"
#include "utlheap.h"

namespace {

// The one file of this process, in memory, by a name that leads through no link.
char name[] = "/dev/shm/messages-XXXXXX";

int openFile() {
    beQuiet();
    const int file = mkstemp(name);
    atexit([] { unlink(name); });
    setenv("KESTRUNE_LANG", name, 1);
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = openFile();
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
        abort();
    ErrMsgInit();
    if (!ErrUtlErrFile)
        abort();
    // Nothing of the file before is left, whatever became of this one.
    if (char* const pattern = ErrMsgGetString("a"))
        UtlFree(pattern);
    // A refused header is fallen over by nobody either.
    ErrMsgReset();
    constexpr const char* symbols[] = {"a", "c.bmhp", "c.cdfa", "missing", ""};
    for (const char* const sym : symbols) {
        char text[100];
        ErrMsgSymToText(sym, text, sizeof text, "sdg", "argument", 7, 1.5);
        if (strnlen(text, sizeof text) == sizeof text)
            abort();
        ErrMsgSetPanicked(FALSE);
        if (char* const pattern = ErrMsgGetString(sym))
            UtlFree(pattern);
    }
    return 0;
}
