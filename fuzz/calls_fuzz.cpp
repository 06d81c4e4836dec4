// Calls of the local store's table in any order, in two sessions that are broken off, commit and end while the other
// one's call runs.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "kcitable.h"

extern "C" const KciRtlJumpSType* KciGetRtlTable();

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const KciRtlJumpSType& kci = *KciGetRtlTable();
    setenv("KCILOCAL_MEMORY", "32", 1);
    setenv("KCILOCAL_SLICE", "100", 1);
    kci.KciInit();
    KciSessionIdType sessions[2] = {};
    for (KciSessionIdType& session : sessions) {
        kci.KciLogin("guest", "guest");
        session = kci.KciGetSessionId();
        kci.KciDirtyObjsInit();
    }
    static constexpr const char* sources[] = {"'text'",
                                              "w'wide'",
                                              "1.5",
                                              "{1. nil. 'a'}",
                                              "List new",
                                              "Set new",
                                              "Dictionary new",
                                              "1 -> 2",
                                              "[:a | ^a]",
                                              "DateTime now",
                                              "Object subclass: #T variables: #(#v)",
                                              "T new",
                                              "Shared at: #it put: {1. Set new. #a -> 2}",
                                              "Shared at: #it",
                                              "(Shared at: #it) at: 1 put: 'new'",
                                              "((Shared at: #it) at: 2) add: 5",
                                              "System commit",
                                              "System abort",
                                              "[true] whileTrue: [List new]",
                                              "nil foo",
                                              "(1 to: 500) asArray",
                                              "System collectGarbage",
                                              "| a | a := 'x'. 1 to: 12 do: [:i | a := a , a]. a",
                                              "System waitMilliseconds: 1"};
    static constexpr const char* selectors[] = {"at:",        "add:",    "=",     ",",      "copy", "printString",
                                                "hash",       "sorted",  "value", "value:", "new:", "keys",
                                                "removeKey:", "remove:", "asSet", "size"};
    OopType pool[24] = {
        0, 1, 2, KCI_OOP_NIL, KCI_OOP_TRUE, 0xFFFFFFFF, 7, KCI_CLASS_STRING, KCI_CLASS_FLOAT, KCI_CLASS_DATE_TIME};
    const auto any = [&]() -> OopType& { return pool[input.ConsumeIntegralInRange(0, 23)]; };
    const auto start = [&] { return input.ConsumeIntegralInRange<KciLong>(-1, 300); };
    const auto count = [&] { return input.ConsumeIntegralInRange<ArraySizeType>(0, 24); };
    KciErrSType error{};
    KciObjInfoSType info{};
    ByteType room[24] = {};
    ArraySizeType fetched = 24;
    void* result = nullptr;
    bool committed = false;
    const std::function<void()> calls[] = {
        [&] { kci.KciSetSessionId(sessions[input.ConsumeBool()]); },
        [&] {
            const char* const source = input.PickValueInArray(sources);
            committed = committed || strstr(source, "commit") != nullptr;
            kci.KciNbExecuteStr(source, KCI_OOP_NIL);
        },
        [&] { kci.KciNbPerform(any(), input.PickValueInArray(selectors), pool, count() % 3); },
        [&] { kci.KciNbExecute(any(), KCI_OOP_NIL); },
        [&] {
            if (kci.KciNbEnd(&result) == KCI_RESULT_READY && result != nullptr)
                any() = *static_cast<OopType*>(result);
        },
        [&] { input.ConsumeBool() ? kci.KciSoftBreak() : kci.KciHardBreak(); },
        [&] { kci.KciNbContinueWith(any(), any(), 0); },
        [&] { any() = error.context; },
        [&] { committed = kci.KciCommit() || committed; },
        [&] { kci.KciAbort(); },
        [&] { any() = kci.KciNewOop(any()); },
        [&] { kci.KciFetchObjInfo(any(), start(), count(), &info, room, &fetched); },
        [&] { kci.KciFetchBytes(any(), start(), room, count()); },
        [&] { kci.KciFetchVaryingOops(any(), start(), pool, count()); },
        [&] { kci.KciFetchNamedOops(any(), start(), pool, count()); },
        [&] { kci.KciStoreBytesInstanceOf(any(), any(), start(), room, count()); },
        [&] { kci.KciStoreIdxOops(any(), start(), pool, count()); },
        [&] { kci.KciStoreNamedOops(any(), start(), pool, count()); },
        [&] { input.ConsumeBool() ? kci.KciSaveObjs(pool, count()) : kci.KciReleaseOops(pool, count()); },
        [&] { fetched = count(), kci.KciDirtySaveObjs(pool, &fetched); },
        [&] { kci.KciOopToFlt(any()), kci.KciOopToLong(any()), kci.KciOopToChr(any()), kci.KciOopToBool(any()); },
        [&] { any() = kci.KciFltToOop(input.ConsumeFloatingPoint<double>()); },
        [&] {
            if (input.ConsumeIntegral<uint8_t>() < 10) {
                kci.KciLogout();
                kci.KciLogin("guest", "guest");
                sessions[0] = kci.KciGetSessionId();
            }
        }};
    while (input.remaining_bytes() > 0) {
        input.PickValueInArray(calls)();
        kci.KciErr(&error);
    }
    // Without a commit nothing stays.
    for (const KciSessionIdType session : sessions) {
        kci.KciSetSessionId(session);
        kci.KciLogout();
    }
    if (committed)
        kci.KciShutdown();
    return 0;
}
