#include "kci/entries.h"

#include "kci/client.h"
#include "store/oop.h"

#include <cstdio>

namespace local::entries {

namespace {

// Checks of arguments; an error names the entry and the argument.

// Arrays that a caller describes with a pointer and a count. A count above what an array can have is a negative one.
template <class Element>
bool isArray(const char* entry, const char* name, const Element* elements, ArraySizeType count) {
    if (count <= INT32_MAX / sizeof(Element) && (elements != nullptr || count == 0)) {
        return true;
    }
    char text[120];
    std::snprintf(text, sizeof text,
                  elements != nullptr ? "%s: %s cannot have %d elements" : "%s: %s is NULL, not %d elements", entry,
                  name, static_cast<int>(count));
    client().recordError(ErrorNumber::BadArgument, text);
    return false;
}

bool isGiven(const char* entry, const char* name, const void* argument) {
    if (argument == nullptr) {
        char text[120];
        std::snprintf(text, sizeof text, "%s: %s must not be NULL", entry, name);
        client().recordError(ErrorNumber::BadArgument, text);
    }
    return argument != nullptr;
}

KciLong fetchOops(const char* entry, RequestKind kind, OopType object, KciLong start, OopType* dest,
                  ArraySizeType count) {
    if (!isArray(entry, "dest", dest, count)) {
        return 0;
    }
    Request request{.kind = kind, .object = object, .start = start};
    request.objectRoom = {dest, count};
    return client().call(request).integer;
}

void sendOops(const char* entry, RequestKind kind, OopType object, KciLong start, const OopType* oops,
              ArraySizeType count) {
    if (isArray(entry, "oops", oops, count)) {
        Request request{.kind = kind, .object = object, .start = start};
        request.objects = {oops, count};
        client().call(request);
    }
}

} // namespace

// --- library and sessions ------------------------------------------------------------------------------------------

BoolType KciInit() {
    return client().initialize() ? TRUE : FALSE;
}

void KciInitAppName(const char*, BoolType) {}

unsigned char KciProduct() {
    return 1;
}

const char* KciVersion() {
    return "6.7.local";
}

BoolType KciIsRemote() {
    return FALSE;
}

void KciShutdown() {
    client().shutDown();
}

void KciUnload() {}

// The local store is everywhere: any server, host user and service will do.
void KciSetNet(const char* server, const char*, const char*, const char*) {
    isGiven(__func__, "server", server);
}

BoolType KciLogin(const char* user, const char* password) {
    return client().login(user, password) ? TRUE : FALSE;
}

void KciLogout() {
    client().logout();
}

KciSessionIdType KciGetSessionId() {
    return client().currentSession();
}

void KciSetSessionId(KciSessionIdType session) {
    client().select(session);
}

BoolType KciErr(KciErrSType* error) {
    return client().takeError(error) ? TRUE : FALSE;
}

// --- calls ---------------------------------------------------------------------------------------------------------

void KciNbExecuteStr(const char* source, OopType) {
    if (isGiven(__func__, "source", source)) {
        Request request{.kind = RequestKind::StartSource};
        request.text = source;
        client().start(request);
    }
}

void KciNbExecute(OopType sourceString, OopType) {
    client().start({.kind = RequestKind::StartString, .object = sourceString});
}

void KciNbPerform(OopType receiver, const char* selector, const OopType* args, ArraySizeType count) {
    if (isGiven(__func__, "selector", selector) && isArray(__func__, "args", args, count)) {
        Request request{.kind = RequestKind::StartSend, .object = receiver};
        request.text = selector;
        request.objects = {args, count};
        client().start(request);
    }
}

KciNbProgressEType KciNbEnd(void** result) {
    KciNbProgressEType progress = client().poll();
    if (result != nullptr && progress == KCI_RESULT_READY) {
        *result = client().resultCell();
    }
    return progress;
}

OopType KciContinueWith(OopType process, OopType replaceTop, KciLong flags, KciErrSType* error) {
    if (flags != 0 || error != nullptr) {
        client().recordError(ErrorNumber::NotSupported,
                             "KciContinueWith with flags or an error is not supported by the local store");
        return KCI_OOP_ILLEGAL;
    }
    return client().call({.kind = RequestKind::Continue, .object = process, .secondObject = replaceTop}).object;
}

void KciNbContinueWith(OopType process, OopType replaceTop, KciLong flags) {
    if (flags != 0) {
        client().recordError(ErrorNumber::NotSupported,
                             "KciNbContinueWith with flags is not supported by the local store");
        return;
    }
    client().start({.kind = RequestKind::StartContinue, .object = process, .secondObject = replaceTop});
}

BoolType KciCallInProgress() {
    const ClientSession* session = client().session();
    return session != nullptr && session->callInProgress ? TRUE : FALSE;
}

void KciSoftBreak() {
    client().requestBreak(false);
}

void KciHardBreak() {
    client().requestBreak(true);
}

// Signals come from a server; the local store sends none.
BoolType KciPollForSignal() {
    client().session();
    return FALSE;
}

// --- transactions --------------------------------------------------------------------------------------------------

// A transaction begins by aborting the one before.
void KciBegin() {
    client().call({.kind = RequestKind::Abort});
}

void KciAbort() {
    client().call({.kind = RequestKind::Abort});
}

BoolType KciCommit() {
    return client().call({.kind = RequestKind::Commit}).integer;
}

// --- objects -------------------------------------------------------------------------------------------------------

BoolType KciFetchObjInfo(OopType object, KciLong start, ArraySizeType room, KciObjInfoSType* info, ByteType* dest,
                         ArraySizeType* fetched) {
    if (!isGiven(__func__, "info", info) || !isArray(__func__, "dest", dest, room)) {
        return FALSE;
    }
    Request request{.kind = RequestKind::FetchInfo, .object = object, .start = start};
    request.room = {dest, room};
    Reply reply = client().call(request);
    if (reply.failed) {
        return FALSE;
    }
    *info = reply.info;
    if (fetched != nullptr) {
        *fetched = static_cast<ArraySizeType>(reply.integer);
    }
    return TRUE;
}

KciLong KciFetchBytes(OopType object, KciLong start, ByteType* dest, ArraySizeType count) {
    if (!isArray(__func__, "dest", dest, count)) {
        return 0;
    }
    Request request{.kind = RequestKind::FetchBytes, .object = object, .start = start};
    request.room = {dest, count};
    return client().call(request).integer;
}

KciLong KciFetchNamedOops(OopType object, KciLong start, OopType* dest, ArraySizeType count) {
    return fetchOops(__func__, RequestKind::FetchNamed, object, start, dest, count);
}

KciLong KciFetchVaryingOops(OopType object, KciLong start, OopType* dest, ArraySizeType count) {
    return fetchOops(__func__, RequestKind::FetchIndexed, object, start, dest, count);
}

OopType KciFetchNamedOop(OopType object, KciLong index) {
    return client().call({.kind = RequestKind::FetchVariable, .object = object, .start = index}).object;
}

void KciStoreBytesInstanceOf(OopType cls, OopType object, KciLong start, const ByteType* bytes, ArraySizeType count) {
    if (isArray(__func__, "bytes", bytes, count)) {
        Request request{.kind = RequestKind::StoreBytes, .object = object, .secondObject = cls, .start = start};
        request.bytes = {bytes, count};
        client().call(request);
    }
}

void KciStoreIdxOops(OopType object, KciLong start, const OopType* oops, ArraySizeType count) {
    sendOops(__func__, RequestKind::StoreIndexed, object, start, oops, count);
}

void KciStoreNamedOops(OopType object, KciLong start, const OopType* oops, ArraySizeType count) {
    sendOops(__func__, RequestKind::StoreNamed, object, start, oops, count);
}

OopType KciNewOop(OopType cls) {
    return client().call({.kind = RequestKind::NewObject, .object = cls}).object;
}

OopType KciNewDateTime(OopType cls, const KciDateTimeSType* value) {
    if (!isGiven(__func__, "value", value)) {
        return KCI_OOP_ILLEGAL;
    }
    Request request{.kind = RequestKind::NewDateTime, .object = cls};
    request.dateTime = *value;
    return client().call(request).object;
}

BoolType KciFetchDateTime(OopType object, KciDateTimeSType* value) {
    if (!isGiven(__func__, "value", value)) {
        return FALSE;
    }
    Reply reply = client().call({.kind = RequestKind::FetchDateTime, .object = object});
    if (!reply.failed) {
        *value = reply.dateTime;
    }
    return reply.failed ? FALSE : TRUE;
}

BoolType KciIsKindOf(OopType object, OopType cls) {
    return client().call({.kind = RequestKind::IsKindOf, .object = object, .secondObject = cls}).integer;
}

// --- values --------------------------------------------------------------------------------------------------------

OopType KciLongToOop(KciLong value) {
    if (fitsSmallInteger(value)) {
        return smallIntegerOop(value);
    }
    return client().call({.kind = RequestKind::FromInteger, .integer = value}).object;
}

KciLong KciOopToLong(OopType object) {
    if (isSmallInteger(object)) {
        return smallIntegerValue(object);
    }
    return client().call({.kind = RequestKind::ToInteger, .object = object}).integer;
}

OopType KciFltToOop(double value) {
    return client().call({.kind = RequestKind::FromReal, .real = value}).object;
}

double KciOopToFlt(OopType object) {
    return client().call({.kind = RequestKind::ToReal, .object = object}).real;
}

BoolType KciOopToBool(OopType object) {
    if (isBoolean(object)) {
        return object == KCI_OOP_TRUE ? TRUE : FALSE;
    }
    return client().call({.kind = RequestKind::ToBoolean, .object = object}).integer;
}

// The low byte of a character's code.
char KciOopToChr(OopType object) {
    if (isCharacter(object)) {
        return static_cast<char>(characterValue(object));
    }
    return static_cast<char>(client().call({.kind = RequestKind::ToCharacter, .object = object}).integer);
}

// --- export set and changes ----------------------------------------------------------------------------------------

void KciSaveObjs(const OopType* oops, ArraySizeType count) {
    sendOops(__func__, RequestKind::Save, KCI_OOP_NIL, 1, oops, count);
}

void KciReleaseOops(const OopType* oops, ArraySizeType count) {
    sendOops(__func__, RequestKind::Release, KCI_OOP_NIL, 1, oops, count);
}

void KciDirtyObjsInit() {
    client().call({.kind = RequestKind::TrackChanges});
}

BoolType KciDirtySaveObjs(OopType* dest, ArraySizeType* count) {
    if (!isGiven(__func__, "count", count)) {
        return FALSE;
    }
    ArraySizeType room = *count;
    *count = 0;
    if (!isArray(__func__, "dest", dest, room)) {
        return FALSE;
    }
    Request request{.kind = RequestKind::TakeChanges};
    request.objectRoom = {dest, room};
    Reply reply = client().call(request);
    *count = static_cast<ArraySizeType>(reply.integer);
    return reply.more ? TRUE : FALSE;
}

} // namespace local::entries
