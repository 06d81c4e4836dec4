// The store's language through its table. The input is a source text, or, behind a first byte of 1, the numbers of
// tokens; a number from 128 on says how often the token before it, or the two before it, are repeated: up to 20,000
// times.
#include <cstdlib>
#include <string>
#include <string_view>

#include "kcitable.h"

namespace {

constexpr std::string_view tokens[] = {
    "3",         "-",          "foo",        "x",           ":=",     "|",       "[",          "]",       "(",
    ")",         "{",          "}",          ".",           ";",      "^",       "#(",         "#[",      "$a",
    "'a'",       "w'b'",       "\"c\"",      "\"",          "'",      "+",       "at:",        "put:",    "self",
    "super",     "nil",        "true",       ":y",          "Array",  "new",     "new:",       "value",   "do:",
    "collect:",  "whileTrue:", "ifTrue:",    "System",      "commit", "abort",   "Object",     "copy",    "List",
    "add:",      "size",       "Dictionary", "sorted",      "1e5",    "asArray", "Shared",     "Process", "method:",
    "subclass:", "variables:", "perform:",   "printString", "#sym",   "#",       "\n",         "16r",     ",",
    "hash",      "Set",        "DateTime",   "now",         "raise:", "1/2",     "99999999999"};

std::string sourceOf(const uint8_t* data, size_t size) {
    std::string source;
    std::string_view last, beforeLast;
    for (size_t i = 0; i < size && source.size() < 400000; ++i) {
        if (data[i] < 128) {
            beforeLast = last;
            last = tokens[data[i] % std::size(tokens)];
            source.append(last).append(" ");
            continue;
        }
        for (unsigned n = (data[i] & 62) * (data[i] & 62) * 5 + 780; n > 0; --n) {
            if ((data[i] & 1) != 0)
                source.append(beforeLast).append(" ");
            source.append(last).append(" ");
        }
    }
    return source;
}

} // namespace

extern "C" const KciRtlJumpSType* KciGetRtlTable();

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const KciRtlJumpSType& kci = *KciGetRtlTable();
    setenv("KCILOCAL_MEMORY", "64", 1);
    kci.KciInit();
    kci.KciLogin("guest", "guest");
    const std::string source =
        size > 0 && *data == 1 ? sourceOf(data + 1, size - 1) : std::string(reinterpret_cast<const char*>(data), size);
    KciErrSType error{};
    const auto run = [&](const char* text) {
        void* result = nullptr;
        error = {};
        kci.KciNbExecuteStr(text, KCI_OOP_NIL);
        for (int polls = 0; kci.KciNbEnd(&result) != KCI_RESULT_READY; ++polls) {
            if (polls > 10)
                kci.KciSoftBreak();
            if (polls > 1000)
                abort(); // it cannot be broken off
        }
        kci.KciErr(&error);
        return result != nullptr ? *static_cast<OopType*>(result) : KCI_OOP_NIL;
    };
    run(source.c_str());
    if (error.context != KCI_OOP_NIL) {
        kci.KciNbContinueWith(error.context, KCI_OOP_TRUE, 0);
        kci.KciHardBreak();
        for (void* result = nullptr; kci.KciNbEnd(&result) != KCI_RESULT_READY;) {
            kci.KciHardBreak();
        }
    }
    kci.KciAbort();
    kci.KciErr(nullptr);
    if (run("3 + 4") != (7 << 2 | 3) && source.find(':') == std::string::npos)
        abort();
    // Without a commit nothing stays.
    source.find("commit") == std::string::npos ? kci.KciLogout() : kci.KciShutdown();
    return 0;
}
