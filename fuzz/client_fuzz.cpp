// The bridge between a scripted Java environment and a client library that answers anything: numbers out of all range,
// claims of more than it gave, errors with every count of arguments.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <functional>

#include "bridge/harness.h" // for its declarations alone
#include "kcirtl.h"

using bridge::arg;
using namespace scripted;

const KciRtlJumpSType* rtlPrivKciRtlFuncs;
BoolType KciRtlLoad(BoolType, const char*, char*, ArraySizeType) {
    rtlPrivKciRtlFuncs = KciGetRtlTable();
    return TRUE;
}

void KciRtlUnload() {}

static Object* report(const char* field, jlong number) {
    Object* const made = jni().create("TmqKciReport");
    made->fields[field].number = number;
    return made;
}

static void initialize() {
    stdout = fopen("/dev/null", "w");
    jni().beginCall();
    Object* const error = jni().create("TmqKciException");
    if (CALL(initialize, 1, bridge::null, 64, 16, 2, arg(jni().longArray(std::vector<jlong>(16)))) != 32)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool initialized = (initialize(), true);
    (void)initialized;
    static const auto kept = jni().made();
    jni().forgetAfter(kept);
    FuzzedDataProvider input(data, size);
    Client& client = *scriptedClient();
    const auto fill = [&](auto& record) {
        const auto bytes = input.ConsumeBytes<uint8_t>(sizeof record);
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(&record));
    };
    // Its text reaches Java as it is, so it must be one.
    const auto failure = [&] {
        KciErrSType made{};
        fill(made);
        std::transform(made.message, std::end(made.message), made.message, [](char c) { return c & 0x7f; });
        std::end(made.message)[-1] = '\0';
        return made;
    };
    const auto number = [&] {
        return input.ConsumeBool() ? input.ConsumeIntegral<int32_t>() : input.ConsumeIntegralInRange(-2, 70);
    };
    static constexpr const char* answers[] = {
        "KciLogin",         "KciGetSessionId",  "KciNbEnd",        "KciNbEnd result",     "KciIsKindOf",
        "KciFetchNamedOop", "KciOopToLong",     "KciOopToBool",    "KciFetchVaryingOops", "KciFetchNamedOops",
        "KciFetchBytes",    "KciDirtySaveObjs", "KciFetchObjInfo", "KciContinueWith",     "KciNewOop",
        "KciFltToOop",      "KciNewDateTime",   "KciSetSessionId", "KciSaveObjs",         "KciReleaseOops"};
    while (input.remaining_bytes() > 0) {
        client.reset();
        for (int i = input.ConsumeIntegralInRange(0, 4); i > 0; --i)
            client.results[input.PickValueInArray(answers)] = {number(), number()};
        if (input.ConsumeBool())
            client.fail(input.PickValueInArray(answers), failure());
        fill(client.info);
        client.bytes = input.ConsumeBytes<ByteType>(input.ConsumeIntegralInRange(0, 100));
        for (int i = input.ConsumeIntegralInRange(0, 40); i > 0; --i)
            client.oops.push_back(input.ConsumeIntegral<OopType>());
        client.changed = client.oops;
        client.floatResult = input.ConsumeFloatingPoint<double>();
        Object* const object = report("oop", number());
        Object* const value = report("valueType", input.ConsumeIntegralInRange(-2, 25));
        value->fields["objType"].number = -1;
        value->fields["valueLong"].number = number();
        Object* const error = jni().create("TmqKciException");
        const std::vector<Object*> reports = {report("oop", 0), report("oop", 0), report("oop", 0), report("oop", 0)};
        const auto longs = [] { return arg(jni().longArray(std::vector<jlong>(6))); };
        const jint start = number();
        const jint count = input.ConsumeIntegralInRange(-1, 4);
        const std::function<void()> calls[] = {
            [&] { CALL(login, arg(u"s"), bridge::null, arg(u"u"), arg(u"p"), bridge::null, bridge::null); },
            [&] { CALL(logout, 7), CALL(checkErrors, 7); },
            [&] { CALL(setup, 7, arg(object)); },
            [&] { CALL(executeStr, 7, arg(u"3")), CALL(nbEnd, 7, arg(reports[0])); },
            [&] { CALL(executeObj, 7, arg(object)), CALL(nbEnd, 7, arg(reports[0])); },
            [&] {
                CALL(perform, 7, arg(object), arg(u"foo:"), arg({value, object, value, value}), count);
            },
            [&] { CALL(continue, 7, arg(object), 1, arg(value), arg(reports[0]), bridge::null, bridge::null); },
            [&] { CALL(isKindOf, 7, arg(object), arg(value)); },
            [&] { CALL(getBytes, 7, arg(object), start, count, arg(jni().byteArray(std::vector<jbyte>(4)))); },
            [&] { CALL(getObjs, 7, arg(object), start, count, arg(reports)); },
            [&] { CALL(getNamedObjs, 7, arg(object), start, count, arg(reports)); },
            [&] {
                CALL(putObjs, 7, arg(object), start, count, arg({value, object, value, object}));
            },
            [&] { CALL(changedOops, 7, longs(), count); },
            [&] { CALL(releaseOops, 7, longs(), count); },
            [&] {
                CALL(removeFromExportSet, 7, arg({value, object, value, object}), count);
            }};
        jni().beginCall();
        input.PickValueInArray(calls)();
        jni().endCall();
        if (!jni().complaints.empty()) {
            dprintf(2, "%s\n", jni().complaints.front().c_str());
            abort();
        }
        jni().pending.clear();
    }
    return 0;
}
