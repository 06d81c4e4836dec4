/*
 * A client library that does what source texts tell it: answers late, answers errors, and fails or dawdles at the next
 * call of any entry. One session at a time runs a call; objects are numbers without contents.
 *
 *   answer OOP after POLLS      the call's result, after so many polls that answer "not ready"
 *   fail NUMBER context OOP after POLLS   the call's error
 *   break ENTRY fatal FLAG      the next call of that entry fails with error 4000
 *   delay ENTRY by MS           the next call of that entry takes so long
 *   released OOP                answers how often the object was given up
 *   started                     answers how many calls have been started
 */
#include "kcitable.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { OBJECTS = 65536, ELEMENTS = 10000, FIRST_OBJECT = 4000 };

static KciErrSType pending;
static BoolType isPending;

/* The entry whose next call is special; named by a call, it counts from that call's end on. */
static char named[64];
static char armed[64];
static int armedDelay; /* -1: fail */
static int armedFatal;

static OopType result;
static int pollsLeft;
static int failure;
static OopType failureContext;
static int started;
static int releases[OBJECTS];
static OopType changes = 2500; /* what KciDirtySaveObjs has left to hand out */

static void record(int number, OopType context, int fatal) {
    memset(&pending, 0, sizeof pending);
    pending.category = KCI_CATEGORY_SYSTEM;
    pending.number = number;
    pending.context = context;
    pending.fatal = fatal;
    strcpy(pending.message, "as told");
    isPending = TRUE;
}

/* Whether the entry is to fail now; the error is recorded then. */
static int fails(const char* entry) {
    if (strcmp(entry, armed) != 0) {
        return 0;
    }
    armed[0] = '\0';
    if (armedDelay >= 0) {
        usleep((useconds_t)armedDelay * 1000);
        return 0;
    }
    record(4000, KCI_OOP_NIL, armedFatal);
    return 1;
}

static OopType smallInteger(int value) {
    return ((OopType)value << 2) | 3;
}

static void start(const char* source) {
    OopType oop = 0;
    ++started;
    result = KCI_OOP_NIL;
    failure = pollsLeft = 0;
    if (sscanf(source, "answer %u after %d", &result, &pollsLeft) == 2 ||
        sscanf(source, "fail %d context %u after %d", &failure, &failureContext, &pollsLeft) == 3) {
        return;
    }
    if (sscanf(source, "break %63s fatal %d", named, &armedFatal) == 2) {
        armedDelay = -1;
    } else if (sscanf(source, "delay %63s by %d", named, &armedDelay) == 2) {
        return;
    } else if (sscanf(source, "released %u", &oop) == 1) {
        result = smallInteger(releases[oop % OBJECTS]);
    } else if (strcmp(source, "started") == 0) {
        result = smallInteger(started);
    }
}

static void nbExecuteStr(const char* source, OopType symbolList) {
    (void)symbolList;
    if (!fails("KciNbExecuteStr")) {
        start(source);
    }
}

static void nbPerform(OopType receiver, const char* selector, const OopType* args, ArraySizeType count) {
    (void)args, (void)count;
    if (!fails("KciNbPerform")) {
        start(selector);
        result = receiver;
    }
}

static KciNbProgressEType nbEnd(void** place) {
    if (pollsLeft > 0) {
        --pollsLeft;
        return KCI_RESULT_NOT_READY;
    }
    if (failure != 0) {
        record(failure, failureContext, 0);
    } else {
        fails("KciNbEnd");
    }
    if (named[0] != '\0') {
        strcpy(armed, named);
        named[0] = '\0';
    }
    *place = &result;
    return KCI_RESULT_READY;
}

static BoolType kciErr(KciErrSType* error) {
    if (!isPending) {
        return FALSE;
    }
    *error = pending;
    isPending = FALSE;
    return TRUE;
}

static void setSessionId(KciSessionIdType session) {
    (void)session;
    fails("KciSetSessionId");
}

static void saveObjs(const OopType* oops, ArraySizeType count) {
    (void)oops, (void)count;
    fails("KciSaveObjs");
}

static void releaseOops(const OopType* oops, ArraySizeType count) {
    if (fails("KciReleaseOops")) {
        return;
    }
    for (ArraySizeType i = 0; i < count; ++i) {
        ++releases[oops[i] % OBJECTS];
    }
}

static BoolType fetchObjInfo(OopType object, KciLong from, ArraySizeType room, KciObjInfoSType* info, ByteType* dest,
                             ArraySizeType* fetched) {
    (void)from;
    if (fails("KciFetchObjInfo")) {
        return FALSE;
    }
    memset(info, 0, sizeof *info);
    info->objId = object;
    info->objClass = 1000;
    info->objSize = ELEMENTS;
    info->objImpl = object % 8 == 0 ? KCI_IMPL_BYTE : KCI_IMPL_POINTER;
    memset(dest, 0, room);
    *fetched = room;
    return TRUE;
}

static OopType fetchNamedOop(OopType object, KciLong index) {
    (void)object, (void)index;
    return KCI_OOP_NIL;
}

static KciLong fetchBytes(OopType object, KciLong from, ByteType* dest, ArraySizeType count) {
    (void)object, (void)from;
    memset(dest, 7, count);
    return fails("KciFetchBytes") ? 0 : (KciLong)count;
}

static KciLong fetchOops(OopType object, KciLong from, OopType* dest, ArraySizeType count) {
    (void)object;
    if (fails("KciFetchOops")) {
        return 0;
    }
    KciLong fetched = 0;
    for (KciLong i = from; fetched < (KciLong)count && i <= ELEMENTS; ++i) {
        dest[fetched++] = FIRST_OBJECT + 4 * (OopType)i;
    }
    return fetched;
}

static void storeBytes(OopType cls, OopType object, KciLong from, const ByteType* bytes, ArraySizeType count) {
    (void)cls, (void)object, (void)from, (void)bytes, (void)count;
    fails("KciStoreBytesInstanceOf");
}

static void storeOops(OopType object, KciLong from, const OopType* oops, ArraySizeType count) {
    (void)object, (void)from, (void)oops, (void)count;
    fails("KciStoreOops");
}

static BoolType dirtySaveObjs(OopType* dest, ArraySizeType* count) {
    const ArraySizeType room = *count;
    *count = 0;
    if (fails("KciDirtySaveObjs")) {
        return FALSE;
    }
    while (*count < room && changes > 0) {
        dest[(*count)++] = FIRST_OBJECT + 4 * changes--;
    }
    return changes > 0;
}

static OopType newOop(OopType cls) {
    static OopType next = 60000;
    (void)cls;
    return fails("KciNewOop") ? KCI_OOP_ILLEGAL : (next += 4);
}

static OopType continueWith(OopType process, OopType value, KciLong flags, KciErrSType* error) {
    (void)process, (void)flags, (void)error;
    return fails("KciContinueWith") ? KCI_OOP_NIL : value;
}

static BoolType isKindOf(OopType object, OopType cls) {
    (void)object, (void)cls;
    return fails("KciIsKindOf");
}

static OopType longToOop(KciLong value) {
    return smallInteger(value);
}

static BoolType oopToBool(OopType object) {
    return object == KCI_OOP_TRUE;
}

static BoolType pollForSignal(void) {
    return fails("KciPollForSignal");
}

static void setNet(const char* server, const char* user, const char* password, const char* net) {
    (void)user, (void)password, (void)net;
    /* The server's name can be an entry that fails in this login. */
    snprintf(armed, sizeof armed, "%s", server);
    armedDelay = -1;
    armedFatal = 0;
    fails("KciSetNet");
}

static BoolType login(const char* user, const char* password) {
    (void)user, (void)password;
    return !fails("KciLogin");
}

static KciSessionIdType getSessionId(void) {
    fails("KciGetSessionId");
    return 1;
}

static void dirtyObjsInit(void) {
    fails("KciDirtyObjsInit");
}

static void logout(void) {
    fails("KciLogout");
}

static unsigned char product(void) {
    return 1;
}

static const char* version(void) {
    return "6.7.scripted";
}

static BoolType init(void) {
    return TRUE;
}

static void initAppName(const char* name, BoolType flag) {
    (void)name, (void)flag;
}

static void nothing(void) {}

TMQKCI_API const KciRtlJumpSType* KciGetRtlTable(void);

const KciRtlJumpSType* KciGetRtlTable(void) {
    static KciRtlJumpSType table = {
        .kciFeatureLevel = KCI_ENTRY_COUNT,
        .kciCompatiblityLevel = 1,
        .KciContinueWith = continueWith,
        .KciDirtyObjsInit = dirtyObjsInit,
        .KciDirtySaveObjs = dirtySaveObjs,
        .KciErr = kciErr,
        .KciFetchBytes = fetchBytes,
        .KciFetchNamedOop = fetchNamedOop,
        .KciFetchNamedOops = fetchOops,
        .KciFetchObjInfo = fetchObjInfo,
        .KciFetchVaryingOops = fetchOops,
        .KciGetSessionId = getSessionId,
        .KciInit = init,
        .KciInitAppName = initAppName,
        .KciIsKindOf = isKindOf,
        .KciLogin = login,
        .KciLogout = logout,
        .KciLongToOop = longToOop,
        .KciNbEnd = nbEnd,
        .KciNbExecuteStr = nbExecuteStr,
        .KciNbPerform = nbPerform,
        .KciNewOop = newOop,
        .KciOopToBool = oopToBool,
        .KciPollForSignal = pollForSignal,
        .KciProduct = product,
        .KciReleaseOops = releaseOops,
        .KciSaveObjs = saveObjs,
        .KciSetNet = setNet,
        .KciSetSessionId = setSessionId,
        .KciShutdown = nothing,
        .KciStoreBytesInstanceOf = storeBytes,
        .KciStoreIdxOops = storeOops,
        .KciStoreNamedOops = storeOops,
        .KciUnload = nothing,
        .KciVersion = version,
    };
    return &table;
}
