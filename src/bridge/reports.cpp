#include "bridge/reports.h"

#include "bridge/TmqKciInterface.h"

#include <algorithm>

OopType* oopPtr;
jlong* jlongPtr;

namespace {

constexpr KciLong classHistoryIndex = 12;

// The failures of setupReport end here; the native method around it traces its result.
jint released(jint status) {
    ReleaseStrings();
    return status;
}

// Whatever the client library claims: the difference of two 32-bit numbers, modulo 2^32.
jint indexedSize(const KciObjInfoSType& info) {
    return static_cast<jint>(static_cast<uint32_t>(info.objSize) - static_cast<uint32_t>(info.namedSize));
}

[[gnu::always_inline]] inline void setValueLong(jobject result, ValueCode code, jlong value) {
    ENV->SetByteField(result, valueTypeFid, code);
    ENV->SetLongField(result, longFid, value);
}

// A special object carries its value in its identifier and is never saved nor fetched.
jint reportSpecial(KciSessionIdType sessionId, OopType oop, jobject result, jobject jErrReport) {
    ENV->SetByteField(result, objTypeFid, KCI_IMPL_SPECIAL);
    if (isSmallInteger(oop)) [[likely]] {
        if (kciError(jErrReport)) {
            return released(clientFailure(sessionId));
        }
        setValueLong(result, valueInteger, smallIntegerValue(oop));
    } else if (oop == KCI_OOP_NIL) {
        ENV->SetByteField(result, valueTypeFid, valueNil);
    } else if (isBoolean(oop)) {
        setValueLong(result, valueBoolean, rtlPrivKciRtlFuncs->KciOopToBool(oop) != FALSE ? 1 : 0);
    } else if (isCharacter(oop)) {
        // kept: callers get codes above 127 as negative numbers.
        setValueLong(result, valueCharacter, static_cast<signed char>(rtlPrivKciRtlFuncs->KciOopToChr(oop)));
    } else {
        return released(genericFailure(jErrReport, "Logic error:  Bad object type"));
    }
    return 0;
}

jint reportBytes(OopType oop, const KciObjInfoSType& info, jobject result, ValueCode& code) {
    const jint count = std::min(indexedSize(info), PreloadSizeBytes);
    jbyteArray bytes = ENV->NewByteArray(count);
    if (bytes == nullptr) {
        return released(allocationFailure());
    }
    ENV->SetByteArrayRegion(bytes, 0, count, reinterpret_cast<const jbyte*>(byteBuf));
    ENV->SetObjectField(result, bytesFid, bytes);

    code = valueBytes;
    if (info.objClass == KCI_CLASS_FLOAT) {
        code = valueFloat;
        ENV->SetDoubleField(result, doubleFid, rtlPrivKciRtlFuncs->KciOopToFlt(oop));
    } else if (rtlPrivKciRtlFuncs->KciIsKindOf(oop, KCI_CLASS_STRING_KIND)) {
        code = valueString;
        ENV->SetBooleanField(result, isStringFid, JNI_TRUE);
        if (rtlPrivKciRtlFuncs->KciIsKindOf(oop, KCI_CLASS_DB_STRING)) {
            code = valueDbString;
            ENV->SetBooleanField(result, isDBStringFid, JNI_TRUE);
        }
    }
    return 0;
}

KciLong integerPart(OopType oop) {
    return isSmallInteger(oop) ? smallIntegerValue(oop) : rtlPrivKciRtlFuncs->KciOopToLong(oop);
}

jint reportOops(const KciObjInfoSType& info, jobject result, ValueCode& code) {
    const jint count = std::min(info.objSize, PreloadSizeOops);
    oopPtr = reinterpret_cast<OopType*>(byteBuf);
    jlongPtr = jlongBuf;
    for (jint i = 0; i < count; ++i) {
        jlongPtr[i] = oopPtr[i];
    }
    jlongArray longs = ENV->NewLongArray(count);
    if (longs == nullptr) {
        return released(allocationFailure());
    }
    ENV->SetLongArrayRegion(longs, 0, count, jlongPtr);
    ENV->SetObjectField(result, longsFid, longs);

    code = valueOops;
    if (info.objClass == KCI_CLASS_DATE_TIME) {
        code = valueDateTime;
        ENV->SetIntField(result, int1Fid, integerPart(oopPtr[0]));
        ENV->SetIntField(result, int2Fid, integerPart(oopPtr[1]));
        ENV->SetLongField(result, longFid, integerPart(oopPtr[2]));
    }
    return 0;
}

jint reportBody(OopType oop, const KciObjInfoSType& info, jobject result, jobject jErrReport) {
    ValueCode code = valueNone;
    jint status = 0;
    switch (info.objImpl) {
    case KCI_IMPL_BYTE:
        status = reportBytes(oop, info, result, code);
        break;
    case KCI_IMPL_POINTER:
    case KCI_IMPL_NSC:
        status = reportOops(info, result, code);
        break;
    case KCI_IMPL_SPECIAL:
        return released(genericFailure(jErrReport, "Logic error:  Special oop processing"));
    default:
        return 0;
    }
    if (status == 0) {
        ENV->SetByteField(result, valueTypeFid, code);
    }
    return status;
}

// Describes an ordinary object: its class, sizes, kind and value.
jint reportObject(KciSessionIdType sessionId, OopType oop, jobject result, jobject jErrReport) {
    const KciRtlJumpSType& kci = *rtlPrivKciRtlFuncs;
    KciObjInfoSType info = {};
    ArraySizeType fetched = 0;
    // A negative preload size offers no room.
    const auto room = static_cast<ArraySizeType>(std::max(PreloadSizeBytes, 0));
    if (!kci.KciFetchObjInfo(oop, 1, room, &info, byteBuf, &fetched)) [[unlikely]] {
        return released(kciError(jErrReport) ? clientFailure(sessionId)
                                             : genericFailure(jErrReport, "Failure in KciFetchObjInfo() call"));
    }
    TRACE_INFO("Set oop %ld class to %ld\n", shown(oop), shown(info.objClass));
    ENV->SetLongField(result, classOopFid, info.objClass);
    const OopType classHistory = kci.KciFetchNamedOop(info.objClass, classHistoryIndex);
    // A class without a history is no failure: its error is fetched and forgotten.
    kci.KciErr(&KciError);
    TRACE_INFO("Set oop %ld class history to %ld\n", shown(oop), shown(classHistory));
    ENV->SetLongField(result, classHistoryOopFid, classHistory);

    ENV->SetIntField(result, namedSizeFid, info.namedSize);
    ENV->SetLongField(result, indexedSizeFid, indexedSize(info));
    ENV->SetByteField(result, objTypeFid, static_cast<jbyte>(info.objImpl));
    ENV->SetBooleanField(result, isCollectionFid, static_cast<jboolean>(info.isIndexable));
    const jint status = reportBody(oop, info, result, jErrReport);
    if (status != 0) [[unlikely]] {
        return status;
    }
    return kciError(jErrReport) ? released(clientFailure(sessionId)) : 0;
}

} // namespace

jint setupReport(KciSessionIdType sessionId, OopType resultOop, jobject result, jobject jErrReport,
                 BoolType fullSetup) {
    // kept: callers that watch the Java environment see this first; nothing needs the value, for whatever is written
    // has a code of its own.
    ENV->GetByteField(result, valueTypeFid);
    if (resultOop == KCI_OOP_NONE) [[unlikely]] {
        const jint status = getOop(sessionId, result, &resultOop, jErrReport);
        if (status != 0) {
            return status;
        }
    }
    ENV->SetLongField(result, oopFid, resultOop);
    if (resultOop == KCI_OOP_NONE || resultOop == KCI_OOP_ILLEGAL) [[unlikely]] {
        return 0;
    }
    if (isSpecial(resultOop)) {
        return reportSpecial(sessionId, resultOop, result, jErrReport);
    }
    rtlPrivKciRtlFuncs->KciSaveObjs(&resultOop, 1);
    if (kciError(jErrReport)) [[unlikely]] {
        return released(clientFailure(sessionId));
    }
    return fullSetup ? reportObject(sessionId, resultOop, result, jErrReport) : 0;
}

TMQKCI_NATIVE(setup)(JNIEnv* env, jclass, jint sessionId, jobject result, jthrowable jErrReport) {
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (result == nullptr) [[unlikely]] {
            return call.refused("setup(): NULL result argument");
        }
        const auto oop = static_cast<OopType>(ENV->GetLongField(result, oopFid));
        return call.done(setupReport(sessionId, oop, result, jErrReport, TRUE));
    });
}
