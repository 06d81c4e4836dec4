// A message from its symbol: by the pattern of the message file, or in brackets.
#include "err/messages/errbuild.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "err/messages/errcatalogue.h"
#include "err/messages/errformat.h"
#include "errmsg.h"
#include "host/base/upwardcalls.h"
#include "utlheap.h"

namespace {

constexpr size_t maxSymbol = 255;
// The longest bracketed form that quotes a pattern.
constexpr size_t maxQuotedText = 2047;

enum class Wait { forEver, aMoment };

bool lookUp(std::string_view sym, ParsedEntry& entry, char (&buffer)[maxLogicalLine], Wait wait) {
    PendingHooks hooks;
    if (wait == Wait::forEver) {
        HostMutexAcquire(printMutex());
    } else if (!tryPrintMutex()) {
        return false;
    }
    const bool found = findErrSym(sym, entry, buffer, hooks);
    HostMutexRelease(printMutex());
    if (hooks.any()) {
        hooks.run();
    }
    return found;
}

// Renders into a buffer of its own and then copies, because an argument may stand in the caller's buffer.
void buildFromPattern(std::string_view sym, char* buf, size_t bufSize, const ParsedEntry& entry,
                      const MessageArgs& args) {
    ErrMsgStrType work;
    const bool tooMany = args.given > static_cast<size_t>(entry.expectedArgCount);
    BoundedText out(work, (tooMany ? maxQuotedText : maxMessageText) + 1);
    if (tooMany) {
        desperateErr(out, sym, &entry.pattern, args);
    } else {
        mySprintf(out, entry, args);
    }
    const size_t length = std::min(out.length(), bufSize - 1);
    memcpy(buf, work, length);
    buf[length] = 0;
    buf[bufSize - 1] = 0;
}

// Whether rendering into the buffer would overwrite what is rendered.
bool quotesBuffer(const char* buf, size_t bufSize, std::string_view sym, const MessageArgs& args) {
    const auto inBuffer = [&](const char* text) {
        return reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(buf) < bufSize;
    };
    bool found = inBuffer(sym.data());
    for (size_t i = 0; i < args.kinds.size(); ++i) {
        found = found || (args.kinds[i] == 's' && inBuffer(args.values[i].text));
    }
    return found;
}

// The bracketed form, up to the end of the buffer; zeros behind it.
void buildWithoutPattern(std::string_view sym, char* buf, size_t bufSize, const MessageArgs& args) {
    if (!quotesBuffer(buf, bufSize, sym, args)) {
        memset(buf, 0, bufSize);
        BoundedText out(buf, bufSize);
        desperateErr(out, sym, nullptr, args);
        return;
    }
    ErrMsgStrType usual;
    char* const large = bufSize > sizeof usual ? static_cast<char*>(malloc(bufSize)) : nullptr;
    char* const work = large != nullptr ? large : usual;
    BoundedText out(work, large != nullptr ? bufSize : std::min(bufSize, sizeof usual));
    desperateErr(out, sym, nullptr, args);
    memset(buf, 0, bufSize);
    memcpy(buf, work, out.length());
    free(large);
}

void buildString(std::string_view sym, char* buf, ArraySizeType bufSize, const char* kinds, va_list ap, Wait wait) {
    const MessageArgs args(kinds, ap);
    if (sym.size() > maxSymbol) {
        ErrMsgSetPanicked(TRUE);
        fputs("errmsg|buildString:  Error symbol too long\n", stderr);
        HostCallDebugger();
    }
    if (bufSize == 0) {
        return;
    }

    ParsedEntry entry;
    char pattern[maxLogicalLine];
    if (!errMsgPanicked() && lookUp(sym, entry, pattern, wait)) {
        buildFromPattern(sym, buf, bufSize, entry, args);
    } else {
        buildWithoutPattern(sym, buf, bufSize, args);
    }
}

} // namespace

char* ErrMsgGetString(const char* sym) {
    ParsedEntry entry;
    char buffer[maxLogicalLine];
    if (!lookUp(sym, entry, buffer, Wait::forEver)) {
        return nullptr;
    }
    // Not under the mutex: a report of the heap asks for messages.
    char* const string =
        static_cast<char*>(UtlMalloc(static_cast<unsigned>(entry.pattern.size()) + 1, "ErrMsgGetString"));
    if (string == nullptr) {
        return nullptr;
    }
    char* end = string;
    for (size_t i = 0; i < entry.pattern.size(); ++i) {
        const bool escaped = entry.pattern[i] == '\\' && i + 1 < entry.pattern.size() &&
                             (entry.pattern[i + 1] == 'n' || entry.pattern[i + 1] == '\\');
        if (escaped) {
            ++i;
        }
        *end++ = escaped && entry.pattern[i] == 'n' ? '\n' : entry.pattern[i];
    }
    *end = 0;
    return string;
}

void ErrMsgBuildString(const char* sym, char* buf, ArraySizeType bufSize, const char* kinds, va_list ap) {
    buildString(sym, buf, bufSize, kinds, ap, Wait::forEver);
}

void errMsgBuildReport(const char* sym, char* buf, ArraySizeType bufSize, const char* kinds, va_list ap) {
    buildString(sym, buf, bufSize, kinds, ap, Wait::aMoment);
}
