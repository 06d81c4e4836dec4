// One native call of the bridge under the scripted Java environment and client library, and what is expected of it.
#pragma once

#include "com_kestrune_tmqkci_TmqKciControl.h"
#include "com_kestrune_tmqkci_TmqKciInterface.h"
#include "support/scripted_client.h"
#include "support/scripted_jni.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

// A native method with its arguments between the class and the error report, in a test's body.
#define CALL(name, ...)                                                                                                \
    Java_com_kestrune_tmqkci_TmqKciInterface__1##name(scripted::jni().env(), nullptr, __VA_ARGS__, arg(error))

namespace bridge {

// Whether the scripted client library is behind a host (tests/remote). Then it sees the same calls, KciErr aside; it
// may see more before Java refuses something, which a host could not know.
#ifdef HOSTED
constexpr bool hosted = true;
#else
constexpr bool hosted = false;
#endif

using scripted::clientError;
using scripted::jni;
using scripted::Object;

inline scripted::Client& client() {
    return *scriptedClient();
}

// A reference that fits every parameter that takes one.
struct Argument {
    jobject reference;
    template <typename Reference>
    operator Reference() const {
        return static_cast<Reference>(reference);
    }
};
inline Argument arg(Object* object) {
    return {jni().argument(object)};
}
inline Argument arg(const char16_t* text) {
    return {jni().argument(jni().string(text))};
}
inline Argument arg(std::vector<Object*> elements) {
    return {jni().argument(jni().objectArray(std::move(elements)))};
}
inline const Argument null{nullptr};

// A report that names a server object, and one that carries only a Java value.
Object* server(jlong oop);
Object* value(int valueType, jlong valueLong = 0);
Object* text(int valueType, const std::u16string& valueString);

// The fields of a report that are set, in the order of their names: "objType=1 oop=300 valueBytes='abc'".
std::string describe(const Object* report);

// Trace lines.
std::string debug(const std::string& line);
std::string info(const std::string& line);
std::string returning(jint status);
std::string allocationError();                                        // and -2
std::string genericFailure(const std::string& message);               // and -1
std::string errorRecord(const KciErrSType& error);                    // as far as the report itself traces
std::string clientFailure(const KciErrSType& error, int session = 7); // and -1

// The error that scripts use, with an argument that is negative as a long.
KciErrSType scriptError();
KciErrSType genericRecord(const std::string& message);

// A native call, told in steps with a bar between two:
//   KciName(arguments)  a client call
//   KciErr              the question whether that left an error; when it did, this is the end: traced with session 7,
//                       "KciErr 9" with session 9, "KciErr loan" with a loan that is not returned, "KciErr again" with
//                       its status traced once more, "KciErr unchecked" goes on
//   lend JniFunction    Java lends or allocates; when it refuses, the end is -2
//   [ INFO ] text       an informational line
//   "text               what is printed as it stands
//   = 32                the end, traced: its status, -2 as an allocation error
//   -> 1                the end, without a trace
//   ! message           the end with a generic error; "~ message" without a trace of the end
//   anything else       a detailed trace line
// Each story is tried with every error and every refusal that it leaves room for.
struct Story {
    std::function<jint()> native;
    std::string steps;
    std::function<void()> script = {};  // before the call
    std::function<void()> check = {};   // after the call as it is told
    const KciErrSType* error = nullptr; // that comes with the traced end
};
const std::string FRAME = "KciSetSessionId(7)|KciErr|";

// What the bridge takes from the C library, under the test's control.
struct Host {
    bool loadable = true; // dlopen finds the scripted client library
    bool tellsWhy = true; // dlerror has a text
    std::vector<std::string> opened;
    unsigned failingMalloc = 0; // the nth allocation of the bridge from now is refused
    unsigned mallocs = 0, flushes = 0;
};
Host& host();

class Bridge : public testing::Test {
protected:
    void SetUp() override;

    struct Arguments {
        jint debugFlag = 2, bufSize = 64, preloadSize = 16, useLinked = 1;
        const char16_t* appName = u"app";
    };
    // Initializes; the later calls in a process only raise the trace level.
    jint initialize(const Arguments& given, const std::function<void()>& script = {});

    // Makes one native call; its status is in status, what it traced in trace. Breaches of the Java interface's rules
    // and exceptions left pending fail the test; after -2 the environment's own error may be pending.
    jint call(const std::function<jint()>& native, const std::function<void()>& script = {});

    void expectError(const KciErrSType& expected);
    // One telling: the step that fails, or -1 for none.
    void run(const Story& story, int level, int failing = -1);
    // Every telling at every trace level, and the refusal before initialization.
    void check(const std::vector<Story>& stories);
    // What was traced, lines by their level and references by their numbers.
    void expectTrace(const std::string& lines, int level);

    Object* error = nullptr; // fresh for every call, as is result
    Object* result = nullptr;
    Object* kernelOops = nullptr;
    jint status = 0;
    std::string trace;
    std::string pendingAllowed; // an exception that the next call may leave
};

} // namespace bridge
