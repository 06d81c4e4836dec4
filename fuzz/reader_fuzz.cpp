// The reader of message files: the input is the file.
#include <cstdint>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

#include "errmsg.h"
#include "quiet.h"
#include "utlheap.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = [] {
        beQuiet();
        return memfd_create("messages", 0);
    }();
    static char name[64];
    snprintf(name, sizeof name, "/proc/%d/fd/%d", static_cast<int>(getpid()), file);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
        return -1;
    setenv("KESTRUNE_LANG", name, 1);
    ErrMsgInit();
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
