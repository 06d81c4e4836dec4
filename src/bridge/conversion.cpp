#include "bridge/conversion.h"

#include "bridge/errors.h"

namespace {

// One conversion: what it makes is written where the caller wants it and into the report, then checked.
class Conversion {
public:
    Conversion(KciSessionIdType session, jobject object, OopType* destination, jobject errorReport)
        : sessionId(session), report(object), oop(destination), jErrReport(errorReport) {}

    void write(OopType value) const {
        *oop = value;
        ENV->SetLongField(report, oopFid, value);
    }

    [[nodiscard]] jint checked() const {
        if (!kciError(jErrReport)) [[likely]] {
            return 0;
        }
        return leave(clientFailure(sessionId));
    }

    [[nodiscard]] jint writeChecked(OopType value) const {
        write(value);
        return checked();
    }

    [[nodiscard]] jint stringOf(OopType cls, const void* bytes, ArraySizeType length) const {
        if (bytes == nullptr) {
            return leave(allocationFailure());
        }
        const jint status = writeChecked(rtlPrivKciRtlFuncs->KciNewOop(cls));
        if (status != 0) {
            return status;
        }
        rtlPrivKciRtlFuncs->KciStoreBytesInstanceOf(KCI_OOP_NIL, *oop, 1, static_cast<const ByteType*>(bytes), length);
        return checked();
    }

    [[nodiscard]] jint refused(const char* message) const { return leave(genericFailure(jErrReport, message)); }

private:
    const KciSessionIdType sessionId;
    const jobject report;
    OopType* const oop;
    const jobject jErrReport;
};

jint convertString(const Conversion& conversion, jobject report) {
    const auto text = static_cast<jstring>(ENV->GetObjectField(report, stringFid));
    const jsize length = text != nullptr ? ENV->GetStringUTFLength(text) : 0;
    return conversion.stringOf(KCI_CLASS_STRING, GetString(text), static_cast<ArraySizeType>(length));
}

jint convertDbString(const Conversion& conversion, jobject report) {
    const auto text = static_cast<jstring>(ENV->GetObjectField(report, stringFid));
    const jsize length = text != nullptr ? ENV->GetStringLength(text) : 0;
    return conversion.stringOf(KCI_CLASS_DB_STRING, GetDbString(text), static_cast<ArraySizeType>(length) * 2);
}

jint convertDateTime(const Conversion& conversion, jobject report) {
    const jlong milliseconds = ENV->GetLongField(report, longFid);
    const jint year = ENV->GetIntField(report, int1Fid);
    const jint day = ENV->GetIntField(report, int2Fid);
    TRACE_DEBUG("    CALENDAR: yr %d day %d ms %lld\n", year, day, static_cast<long long>(milliseconds));
    const KciDateTimeSType record = {year, day, static_cast<KciLong>(milliseconds), KCI_OOP_NIL};
    return conversion.writeChecked(rtlPrivKciRtlFuncs->KciNewDateTime(KCI_CLASS_DATE_TIME, &record));
}

} // namespace

jint convertValue(KciSessionIdType sessionId, jobject jobj, OopType* oop, jobject jErrReport) {
    const Conversion conversion(sessionId, jobj, oop, jErrReport);
    if (jobj == nullptr) {
        return conversion.refused("getOop(): NULL object");
    }
    switch (ENV->GetByteField(jobj, valueTypeFid)) {
    case valueNone:
        return 0;
    case valueNil:
        conversion.write(KCI_OOP_NIL);
        return 0;
    case valueBoolean:
        return conversion.writeChecked(ENV->GetLongField(jobj, longFid) != 0 ? KCI_OOP_TRUE : KCI_OOP_FALSE);
    case valueCharacter:
        return conversion.writeChecked(characterOop(ENV->GetLongField(jobj, longFid)));
    case valueInteger:
        return conversion.writeChecked(
            rtlPrivKciRtlFuncs->KciLongToOop(static_cast<KciLong>(ENV->GetLongField(jobj, longFid))));
    case valueFloat:
        return conversion.writeChecked(rtlPrivKciRtlFuncs->KciFltToOop(ENV->GetDoubleField(jobj, doubleFid)));
    case valueString:
        return convertString(conversion, jobj);
    case valueDbString:
        return convertDbString(conversion, jobj);
    case valueDateTime:
        return convertDateTime(conversion, jobj);
    default:
        // kept: callers depend on the soft failure; they go on with the identifier that they had.
        TRACE_DEBUG("    getOop(): Logic error in case statement\n");
        return 0;
    }
}
