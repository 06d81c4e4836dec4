// The entry points that the local store implements, as the table's members declare them.
#pragma once

#include "kcitable.h"

namespace local::entries {

// A caller may keep its stack aligned to 4 bytes only.
#define KCI_ENTRY __attribute__((force_align_arg_pointer))

KCI_ENTRY void KciAbort();
KCI_ENTRY void KciBegin();
KCI_ENTRY BoolType KciCallInProgress();
KCI_ENTRY BoolType KciCommit();
KCI_ENTRY OopType KciContinueWith(OopType process, OopType replaceTop, KciLong flags, KciErrSType* error);
KCI_ENTRY void KciDirtyObjsInit();
KCI_ENTRY BoolType KciDirtySaveObjs(OopType* dest, ArraySizeType* count);
KCI_ENTRY BoolType KciErr(KciErrSType* error);
KCI_ENTRY KciLong KciFetchBytes(OopType object, KciLong start, ByteType* dest, ArraySizeType count);
KCI_ENTRY BoolType KciFetchDateTime(OopType object, KciDateTimeSType* value);
KCI_ENTRY OopType KciFetchNamedOop(OopType object, KciLong index);
KCI_ENTRY KciLong KciFetchNamedOops(OopType object, KciLong start, OopType* dest, ArraySizeType count);
KCI_ENTRY BoolType KciFetchObjInfo(OopType object, KciLong start, ArraySizeType room, KciObjInfoSType* info,
                                   ByteType* dest, ArraySizeType* fetched);
KCI_ENTRY KciLong KciFetchVaryingOops(OopType object, KciLong start, OopType* dest, ArraySizeType count);
KCI_ENTRY OopType KciFltToOop(double value);
KCI_ENTRY KciSessionIdType KciGetSessionId();
KCI_ENTRY void KciHardBreak();
KCI_ENTRY BoolType KciInit();
KCI_ENTRY void KciInitAppName(const char* name, BoolType flag);
KCI_ENTRY BoolType KciIsKindOf(OopType object, OopType cls);
KCI_ENTRY BoolType KciIsRemote();
KCI_ENTRY BoolType KciLogin(const char* user, const char* password);
KCI_ENTRY void KciLogout();
KCI_ENTRY OopType KciLongToOop(KciLong value);
KCI_ENTRY void KciNbContinueWith(OopType process, OopType replaceTop, KciLong flags);
KCI_ENTRY KciNbProgressEType KciNbEnd(void** result);
KCI_ENTRY void KciNbExecute(OopType sourceString, OopType symbolList);
KCI_ENTRY void KciNbExecuteStr(const char* source, OopType symbolList);
KCI_ENTRY void KciNbPerform(OopType receiver, const char* selector, const OopType* args, ArraySizeType count);
KCI_ENTRY OopType KciNewDateTime(OopType cls, const KciDateTimeSType* value);
KCI_ENTRY OopType KciNewOop(OopType cls);
KCI_ENTRY BoolType KciOopToBool(OopType object);
KCI_ENTRY char KciOopToChr(OopType object);
KCI_ENTRY double KciOopToFlt(OopType object);
KCI_ENTRY KciLong KciOopToLong(OopType object);
KCI_ENTRY BoolType KciPollForSignal();
KCI_ENTRY unsigned char KciProduct();
KCI_ENTRY void KciReleaseOops(const OopType* oops, ArraySizeType count);
KCI_ENTRY void KciSaveObjs(const OopType* oops, ArraySizeType count);
KCI_ENTRY void KciSetNet(const char* server, const char* hostUser, const char* hostPassword, const char* netService);
KCI_ENTRY void KciSetSessionId(KciSessionIdType session);
KCI_ENTRY void KciShutdown();
KCI_ENTRY void KciSoftBreak();
KCI_ENTRY void KciStoreBytesInstanceOf(OopType cls, OopType object, KciLong start, const ByteType* bytes,
                                       ArraySizeType count);
KCI_ENTRY void KciStoreIdxOops(OopType object, KciLong start, const OopType* oops, ArraySizeType count);
KCI_ENTRY void KciStoreNamedOops(OopType object, KciLong start, const OopType* oops, ArraySizeType count);
KCI_ENTRY void KciUnload();
KCI_ENTRY const char* KciVersion();

} // namespace local::entries
