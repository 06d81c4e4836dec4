// The table of entry points, and the entries that the local store does not implement.
#include "kci/client.h"
#include "kci/entries.h"

#include <cstdio>

namespace local {

namespace {

// Answers 0, which callers that expect a number, an identifier or a pointer all take for nothing.
OopType refuse(const char* name) {
    char text[100];
    std::snprintf(text, sizeof text, "%s is not supported by the local store", name);
    client().recordError(ErrorNumber::NotSupported, text);
    return KCI_OOP_NONE;
}

#define ENTRY(name)                                                                                                    \
    KCI_ENTRY OopType name##Unsupported() {                                                                            \
        return refuse(#name);                                                                                          \
    }
#include "kci/unsupported.inc"
#undef ENTRY

KciRtlJumpSType makeTable() {
    KciRtlJumpSType table{};
    table.kciFeatureLevel = KCI_ENTRY_COUNT;
#define ENTRY(name) table.name = reinterpret_cast<KciOtherFunc*>(name##Unsupported);
#include "kci/unsupported.inc"
#undef ENTRY
#define ENTRY(name) table.name = reinterpret_cast<decltype(table.name)>(entries::name);
#include "kci/supported.inc"
#undef ENTRY
    return table;
}

} // namespace

} // namespace local

extern "C" TMQKCI_API const KciRtlJumpSType* KciGetRtlTable() {
    static const KciRtlJumpSType table = local::makeTable();
    return &table;
}
