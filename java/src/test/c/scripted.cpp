/*
 * A client library that does what source texts tell it: answers late, answers errors, and fails at the next call of
 * any entry. One session at a time runs a call; objects are numbers without contents.
 *
 *   answer OOP after POLLS      the call's result, after so many polls that answer "not ready"
 *   fail NUMBER context OOP after POLLS   the call's error
 *   break ENTRY fatal FLAG      the next call of that entry fails with error 4000
 *   claim COUNT                 the next fetch of references answers that count, and fetches none
 *   released OOP                answers how often the object was given up
 *   started                     answers how many calls have been started
 */
#include "kcitable.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr int objects = 65536, elements = 10000, firstObject = 4000;

KciErrSType pending;
bool isPending;

// The entry whose next call fails; named by a call, it counts from that call's end on.
char named[64], armed[64];
int armedFatal;

OopType result, failureContext, nextOop = 60000;
int pollsLeft, failure, started, claimed;
int releases[objects];
OopType changes = 2500; // what KciDirtySaveObjs has left to hand out

void record(int number, OopType context, int fatal) {
    pending = {};
    pending.category = KCI_CATEGORY_SYSTEM;
    pending.number = number;
    pending.context = context;
    pending.fatal = fatal;
    strcpy(pending.message, "as told");
    isPending = true;
}

// Whether the entry is to fail now; the error is recorded then.
BoolType fails(const char* entry) {
    if (strcmp(entry, armed) != 0)
        return FALSE;
    armed[0] = '\0';
    record(4000, KCI_OOP_NIL, armedFatal);
    return TRUE;
}

OopType smallInteger(int value) {
    return (OopType(value) << 2) | 3;
}

void start(const char* source) {
    OopType oop = 0;
    ++started;
    result = KCI_OOP_NIL;
    failure = pollsLeft = 0;
    if (sscanf(source, "answer %u after %d", &result, &pollsLeft) == 2 ||
        sscanf(source, "fail %d context %u after %d", &failure, &failureContext, &pollsLeft) == 3)
        return;
    sscanf(source, "break %63s fatal %d", named, &armedFatal);
    sscanf(source, "claim %d", &claimed);
    if (sscanf(source, "released %u", &oop) == 1)
        result = smallInteger(releases[oop % objects]);
    else if (strcmp(source, "started") == 0)
        result = smallInteger(started);
}

KciNbProgressEType nbEnd(void** place) {
    if (pollsLeft > 0) {
        --pollsLeft;
        return KCI_RESULT_NOT_READY;
    }
    if (failure != 0)
        record(failure, failureContext, 0);
    else
        fails("KciNbEnd");
    if (named[0] != '\0') {
        strcpy(armed, named);
        named[0] = '\0';
    }
    *place = &result;
    return KCI_RESULT_READY;
}

BoolType fetchObjInfo(OopType object, KciLong, ArraySizeType room, KciObjInfoSType* info, ByteType* dest,
                      ArraySizeType* fetched) {
    if (fails("KciFetchObjInfo"))
        return FALSE;
    *info = {};
    info->objId = object;
    info->objClass = 1000;
    info->objSize = elements;
    info->objImpl = object % 8 == 0 ? KCI_IMPL_BYTE : KCI_IMPL_POINTER;
    memset(dest, 0, room);
    *fetched = room;
    return TRUE;
}

KciLong fetchOops(OopType, KciLong from, OopType* dest, ArraySizeType count) {
    if (fails("KciFetchOops"))
        return 0;
    if (claimed != 0)
        return std::exchange(claimed, 0);
    KciLong fetched = 0;
    for (KciLong i = from; fetched < KciLong(count) && i <= elements; ++i)
        dest[fetched++] = firstObject + 4 * OopType(i);
    return fetched;
}

BoolType dirtySaveObjs(OopType* dest, ArraySizeType* count) {
    const ArraySizeType room = *count;
    *count = 0;
    if (fails("KciDirtySaveObjs"))
        return FALSE;
    while (*count < room && changes > 0)
        dest[(*count)++] = firstObject + 4 * changes--;
    return changes > 0;
}

// The server's name can be an entry that fails in this login.
void setNet(const char* server, const char*, const char*, const char*) {
    snprintf(armed, sizeof armed, "%s", server);
    armedFatal = 0;
    fails("KciSetNet");
}

KciRtlJumpSType makeTable() {
    KciRtlJumpSType table{};
    table.kciFeatureLevel = KCI_ENTRY_COUNT;
    table.kciCompatiblityLevel = 1;
    table.KciContinueWith = [](OopType, OopType value, KciLong, KciErrSType*) {
        return fails("KciContinueWith") ? KCI_OOP_NIL : value;
    };
    table.KciDirtyObjsInit = [] { fails("KciDirtyObjsInit"); };
    table.KciDirtySaveObjs = dirtySaveObjs;
    table.KciErr = [](KciErrSType* error) -> BoolType {
        if (!isPending)
            return FALSE;
        *error = pending;
        isPending = false;
        return TRUE;
    };
    table.KciFetchBytes = [](OopType, KciLong, ByteType* dest, ArraySizeType count) {
        memset(dest, 7, count);
        return fails("KciFetchBytes") ? 0 : KciLong(count);
    };
    table.KciFetchNamedOop = [](OopType, KciLong) { return OopType(KCI_OOP_NIL); };
    table.KciFetchNamedOops = table.KciFetchVaryingOops = fetchOops;
    table.KciFetchObjInfo = fetchObjInfo;
    table.KciGetSessionId = [] {
        fails("KciGetSessionId");
        return KciSessionIdType(1);
    };
    table.KciInit = []() -> BoolType { return TRUE; };
    table.KciInitAppName = [](const char*, BoolType) {};
    table.KciIsKindOf = [](OopType, OopType) { return fails("KciIsKindOf"); };
    table.KciLogin = [](const char*, const char*) -> BoolType { return !fails("KciLogin"); };
    table.KciLogout = [] { fails("KciLogout"); };
    table.KciLongToOop = [](KciLong value) { return smallInteger(value); };
    table.KciNbEnd = nbEnd;
    table.KciNbExecuteStr = [](const char* source, OopType) {
        if (!fails("KciNbExecuteStr"))
            start(source);
    };
    table.KciNbPerform = [](OopType receiver, const char* selector, const OopType*, ArraySizeType) {
        if (!fails("KciNbPerform")) {
            start(selector);
            result = receiver;
        }
    };
    table.KciNewOop = [](OopType) { return fails("KciNewOop") ? KCI_OOP_ILLEGAL : nextOop += 4; };
    table.KciOopToBool = [](OopType object) -> BoolType { return object == KCI_OOP_TRUE; };
    table.KciPollForSignal = [] { return fails("KciPollForSignal"); };
    table.KciProduct = []() -> unsigned char { return 1; };
    table.KciReleaseOops = [](const OopType* oops, ArraySizeType count) {
        if (fails("KciReleaseOops"))
            return;
        for (ArraySizeType i = 0; i < count; ++i)
            ++releases[oops[i] % objects];
    };
    table.KciSaveObjs = [](const OopType*, ArraySizeType) { fails("KciSaveObjs"); };
    table.KciSetNet = setNet;
    table.KciSetSessionId = [](KciSessionIdType) { fails("KciSetSessionId"); };
    table.KciShutdown = table.KciUnload = [] {};
    table.KciStoreBytesInstanceOf = [](OopType, OopType, KciLong, const ByteType*, ArraySizeType) {
        fails("KciStoreBytesInstanceOf");
    };
    table.KciStoreIdxOops =
        table.KciStoreNamedOops = [](OopType, KciLong, const OopType*, ArraySizeType) { fails("KciStoreOops"); };
    table.KciVersion = [] { return "6.7.scripted"; };
    return table;
}

} // namespace

extern "C" TMQKCI_API const KciRtlJumpSType* KciGetRtlTable() {
    static const KciRtlJumpSType table = makeTable();
    return &table;
}
