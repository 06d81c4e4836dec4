// A client library that answers at once from fixed objects, so that the bridge's own work is what is measured.

#include "kcitable.h"

#include <cstring>

namespace {

constexpr OopType stringObject = 100, arrayObject = 104, bytesObject = 108, listClass = 200, history = 300;
constexpr char text[] = "twelve bytes";

constexpr OopType smallInteger = 42 << 2 | 3;

OopType result;

void fillOops(OopType* dest, ArraySizeType count) {
    for (ArraySizeType i = 0; i < count; ++i) {
        dest[i] = 1000 + 4 * i;
    }
}

BoolType fetchObjInfo(OopType object, KciLong, ArraySizeType, KciObjInfoSType* info, ByteType* dest,
                      ArraySizeType* fetched) {
    info->objId = object;
    if (object == stringObject) {
        info->objClass = KCI_CLASS_STRING;
        info->objSize = sizeof text - 1;
        info->objImpl = KCI_IMPL_BYTE;
        std::memcpy(dest, text, sizeof text - 1);
    } else {
        info->objClass = listClass;
        info->objSize = 8;
        info->objImpl = KCI_IMPL_POINTER;
        fillOops(reinterpret_cast<OopType*>(dest), 8);
    }
    info->isIndexable = 1;
    *fetched = static_cast<ArraySizeType>(info->objSize);
    return TRUE;
}

KciRtlJumpSType makeTable() {
    KciRtlJumpSType table = {};
    table.kciFeatureLevel = KCI_ENTRY_COUNT;
    table.kciCompatiblityLevel = 1;
    table.KciProduct = []() -> unsigned char { return 1; };
    table.KciVersion = [] { return "6.7.bench"; };
    table.KciInitAppName = [](const char*, BoolType) {};
    table.KciInit = []() -> BoolType { return TRUE; };
    table.KciErr = [](KciErrSType*) -> BoolType { return FALSE; };
    table.KciSetSessionId = [](KciSessionIdType) {};
    table.KciSaveObjs = [](const OopType*, ArraySizeType) {};
    table.KciIsKindOf = [](OopType object, OopType cls) -> BoolType {
        return object == stringObject && cls == KCI_CLASS_STRING_KIND;
    };
    table.KciFetchObjInfo = fetchObjInfo;
    table.KciFetchNamedOop = [](OopType, KciLong) -> OopType { return history; };
    table.KciFetchVaryingOops = [](OopType, KciLong, OopType* dest, ArraySizeType count) -> KciLong {
        fillOops(dest, count);
        return static_cast<KciLong>(count);
    };
    table.KciFetchBytes = [](OopType, KciLong, ByteType* dest, ArraySizeType count) -> KciLong {
        std::memset(dest, 7, count);
        return static_cast<KciLong>(count);
    };
    table.KciNbPerform = [](OopType receiver, const char*, const OopType*, ArraySizeType) {
        result = receiver == stringObject ? smallInteger : stringObject;
    };
    table.KciNbEnd = [](void** place) {
        *place = &result;
        return KCI_RESULT_READY;
    };
    table.KciShutdown = [] {};
    table.KciUnload = [] {};
    return table;
}

} // namespace

extern "C" TMQKCI_API const KciRtlJumpSType* KciGetRtlTable() {
    static const KciRtlJumpSType table = makeTable();
    return &table;
}
