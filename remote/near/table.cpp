// The table of entry points that the library hands out, and its other exported functions.
#include "kciremote.h"
#include "near/near.h"

#include <cstdio>

namespace remote {

namespace {

// A caller may keep its stack aligned to 4 bytes only.
#if defined(__i386__)
#define KCI_ENTRY __attribute__((force_align_arg_pointer))
#else
#define KCI_ENTRY
#endif

template <EntryId id, class Function>
struct Stub;

template <EntryId id, class Result, class... Arguments>
struct Stub<id, Result (*)(Arguments...)> {
    KCI_ENTRY static Result entry(Arguments... arguments) { return near().call<id>({arguments...}); }
};

// Answers 0, which callers that expect a number, an identifier or a pointer all take for nothing. It realigns the stack
// for those that do nothing else.
[[gnu::noinline]] KCI_ENTRY OopType refuse(const char* name) {
    near().fail(ErrorNumber::notServed, false, "%s is not served by the remote client library", name);
    return KCI_OOP_NONE;
}

#define ENTRY(name)                                                                                                    \
    OopType name##NotServed() {                                                                                        \
        return refuse(#name);                                                                                          \
    }
#include "near/not_served.inc"
#undef ENTRY

// The entries that are more than an exchange.
KCI_ENTRY BoolType takeError(KciErrSType* error) {
    return near().takeError(error);
}
KCI_ENTRY void select(KciSessionIdType session) {
    near().select(session);
}
KCI_ENTRY KciSessionIdType currentSession() {
    return near().currentSession();
}
KCI_ENTRY BoolType logIn(const char* user, const char* password) {
    return near().logIn(user, password);
}
KCI_ENTRY void logOut() {
    near().logOut();
}
KCI_ENTRY BoolType initialize() {
    return near().initialize();
}
KCI_ENTRY void initializeName(const char* name, BoolType flag) {
    near().initializeName(name, flag);
}
KCI_ENTRY void setNet(const char* server, const char* hostUser, const char* hostPassword, const char* netService) {
    near().setNet(server, hostUser, hostPassword, netService);
}
KCI_ENTRY void shutDown() {
    near().shutDown();
}
KCI_ENTRY void unload() {
    near().unload();
}
KCI_ENTRY const char* version() {
    return near().version();
}
KCI_ENTRY void saveObjects(const OopType* oops, ArraySizeType count) {
    near().saveObjects(oops, count);
}
template <EntryId kind>
KCI_ENTRY void requestBreak() {
    near().requestBreak(kind);
}

constexpr KciRtlJumpSType makeTable() {
    KciRtlJumpSType table{};
    table.kciFeatureLevel = KCI_ENTRY_COUNT;
    table.KciErr = takeError;
    table.KciSetSessionId = select;
    table.KciGetSessionId = currentSession;
    table.KciLogin = logIn;
    table.KciLogout = logOut;
    table.KciInit = initialize;
    table.KciInitAppName = initializeName;
    table.KciSetNet = setNet;
    table.KciShutdown = shutDown;
    table.KciUnload = unload;
    table.KciVersion = version;
    table.KciSaveObjs = saveObjects;
    table.KciSoftBreak = requestBreak<EntryId::KciSoftBreak>;
    table.KciHardBreak = requestBreak<EntryId::KciHardBreak>;
    // All others are an exchange and nothing more.
#define ROW(name, ...)                                                                                                 \
    if (table.name == nullptr) {                                                                                       \
        table.name = Stub<EntryId::name, decltype(table.name)>::entry;                                                 \
    }
#define SECRET ROW
#include "wire/rows.inc"
#undef SECRET
#undef ROW
    return table;
}

template <EntryId... ids>
void leaveOut(KciRtlJumpSType& table, uint32_t lacking, EntryList<ids...>) {
    static constexpr KciRtlJumpSType whole = makeTable();
    uint32_t bit = 1;
    ((table.*EntryRow<ids>::member = (lacking & bit) != 0 ? nullptr : whole.*EntryRow<ids>::member, bit <<= 1), ...);
}

const KciRtlJumpSType* theTable() {
    static KciRtlJumpSType table = makeTable();
#define ENTRY(name) table.name = reinterpret_cast<KciOtherFunc*>(name##NotServed);
#include "near/not_served.inc"
#undef ENTRY
    leaveOut(table, near().lacking(), OptionalEntries());
    return &table;
}

void afterFork() {
    near().forgetInFork();
}

[[gnu::constructor]] void watchForks() {
    pthread_atfork(nullptr, nullptr, afterFork);
}

[[gnu::destructor]] void leave() {
    near().leave();
}

} // namespace

} // namespace remote

extern "C" {

TMQKCI_API const KciRtlJumpSType* KciGetRtlTable() {
    remote::near().serveDefault();
    return remote::theTable();
}

BoolType KciRemoteServe(const char* file, char* err, ArraySizeType errSize) {
    remote::Problem problem;
    if (remote::near().serve(file, problem)) {
        return TRUE;
    }
    if (err != nullptr) {
        std::snprintf(err, errSize, "%s", problem.text);
    }
    return FALSE;
}

uint64_t KciRemoteExchanges() {
    return remote::near().exchangeCount();
}
}
