#include "bridge/harness.h"

#include "kcirtl.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <optional>
#include <regex>
#include <sstream>

extern int TmqKciInitialized;

namespace {

bridge::Host theHost;
char handle; // stands for the opened client library
bool watching = false;

} // namespace

extern "C" const KciRtlJumpSType* remoteGetRtlTable();

// The linker puts these before the C library's functions of the names behind __wrap_.
extern "C" {
void* __real_malloc(size_t size);
int __real_fflush(FILE* file);

void* __wrap_malloc(size_t size) {
    if (!watching)
        return __real_malloc(size);
    theHost.mallocs++;
    return theHost.failingMalloc > 0 && --theHost.failingMalloc == 0 ? nullptr : __real_malloc(size);
}
int __wrap_fflush(FILE* file) {
    theHost.flushes += watching && file == stdout;
    return __real_fflush(file);
}
void* __wrap_dlopen(const char* name, int) {
    theHost.opened.emplace_back(name);
    return theHost.loadable ? &handle : nullptr;
}
void* __wrap_dlsym(void*, const char* name) {
#ifdef HOSTED
    const auto table = &remoteGetRtlTable;
#else
    const auto table = &KciGetRtlTable;
#endif
    return name == std::string("KciGetRtlTable") ? reinterpret_cast<void*>(table) : nullptr;
}
char* __wrap_dlerror() {
    static char text[] = "not there";
    return theHost.tellsWhy ? text : nullptr;
}
int __wrap_dlclose(void*) {
    return 0;
}

// Asking for a huge buffer fails instead of ending the program.
__attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
__attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

// Kept: an initialization that fails leaves the buffers that it has.
__attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:TmqKciInterface__1initialize";
}
}

namespace bridge {
namespace {

std::string escape(const std::u16string& text) {
    std::string out;
    for (char16_t unit : text)
        out += unit >= ' ' && unit < 127 ? std::string(1, char(unit)) : "\\" + std::to_string(unit);
    return out;
}

// A host asks KciErr after every call, its near side for nothing.
std::string withoutErrorQuestions(std::string calls) {
    return hosted ? std::regex_replace(calls, std::regex("(^| )KciErr(?= |$)"), "") : calls;
}

} // namespace

Host& host() {
    return theHost;
}

Object* server(jlong oop) {
    Object* report = jni().create("TmqKciReport");
    report->fields["oop"].number = oop;
    return report;
}

Object* value(int valueType, jlong valueLong) {
    Object* report = jni().create("TmqKciReport");
    report->fields["objType"].number = -1;
    report->fields["valueType"].number = valueType;
    if (valueLong != 0)
        report->fields["valueLong"].number = valueLong;
    return report;
}

Object* text(int valueType, const std::u16string& valueString) {
    Object* report = value(valueType);
    report->fields["valueString"].object = jni().string(valueString);
    return report;
}

std::string describe(const Object* report) {
    std::ostringstream out;
    for (const auto& [name, value] : report->fields) {
        out << (out.tellp() > 0 ? " " : "") << name << "=";
        if (!value.object) {
            value.real != 0 ? out << value.real : out << value.number;
        } else if (name == "valueBytes") {
            out << "'" << escape({value.object->bytes.begin(), value.object->bytes.end()}) << "'";
        } else if (name == "valueLongs") {
            out << "[ ";
            for (jlong each : value.object->longs)
                out << each << " ";
            out << "]";
        } else {
            out << "'" << escape(value.object->text) << "'";
        }
    }
    return out.str();
}

std::string debug(const std::string& line) {
    return "[DEBUGC] " + line + "\n";
}
std::string info(const std::string& line) {
    return "[ INFO ] " + line + "\n";
}
std::string returning(jint status) {
    return debug("    Returning: " + std::to_string(status));
}
std::string allocationError() {
    return debug("    Allocation Error return") + returning(-2);
}

std::string errorRecord(const KciErrSType& error) {
    const auto number = [](const char* name, OopType value) { return debug(name + std::to_string(KciLong(value))); };
    std::string lines = debug("    KCI ERROR: ") + number("    Error:        ", OopType(error.number)) +
                        debug("    Message:      " + std::string(error.message)) +
                        number("    Category Oop: ", error.category) + number("    Context Oop:  ", error.context) +
                        number("    FatalFlag:    ", OopType(error.fatal)) +
                        number("    Number Args:  ", OopType(error.argCount));
    for (int i = 0; i < error.argCount; i++)
        lines += number(("        ArgOop[" + std::to_string(i) + "]:  ").c_str(), error.args[i]);
    return lines;
}

KciErrSType genericRecord(const std::string& message) {
    KciErrSType error = clientError(2318, message);
    error.category = KCI_OOP_NIL;
    return error;
}

std::string genericFailure(const std::string& message) {
    return debug("    GENERIC ERROR: " + message) + errorRecord(genericRecord(message)) +
           debug("    Generic Error return: " + message) + returning(-1);
}

std::string clientFailure(const KciErrSType& error, int session) {
    return errorRecord(error) + debug("    Session: " + std::to_string(session)) + returning(-1);
}

KciErrSType scriptError() {
    KciErrSType error = clientError(2101, "by script", {301, 0x80000001});
    error.context = 0xFFFFFFF1;
    error.fatal = TRUE;
    return error;
}

void Bridge::SetUp() {
    setenv("KESTRUNE", "/k", 1);
    unsetenv("KCIRTL_BASELIBNAME");
    unsetenv("KCIRTL_VERSION");
    kernelOops = jni().longArray(std::vector<jlong>(16));
}

jint Bridge::initialize(const Arguments& given, const std::function<void()>& script) {
    const auto native = [&] {
        return CALL(initialize, given.useLinked, given.appName ? arg(given.appName) : null, given.bufSize,
                    given.preloadSize, given.debugFlag, arg(kernelOops));
    };
    return call(native, script);
}

jint Bridge::call(const std::function<jint()>& native, const std::function<void()>& script) {
    jni().beginCall();
    if (hosted && rtlPrivKciRtlFuncs) {
        // Nothing is left from the call before, and the next one's session is another.
        while (rtlPrivKciRtlFuncs->KciErr(nullptr)) {
        }
        rtlPrivKciRtlFuncs->KciSetSessionId(1'000'000);
    }
    client().reset();
    host() = Host();
    pendingAllowed.clear();
    error = jni().create("TmqKciException");
    result = jni().create("TmqKciReport");
    if (script)
        script();

    testing::internal::CaptureStdout();
    watching = true;
    status = native();
    watching = false;
    trace = testing::internal::GetCapturedStdout();

    jni().endCall();
    EXPECT_EQ(jni().complaints, std::vector<std::string>());
    if (status != -2) {
        EXPECT_EQ(jni().pending, pendingAllowed);
    }
    return status;
}

void Bridge::expectError(const KciErrSType& expected) {
    const auto* message = error->object("message");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->text, scripted::fromModifiedUtf8(expected.message));
    EXPECT_EQ(error->number("number"), expected.number);
    EXPECT_EQ(error->number("category"), jlong(expected.category));
    EXPECT_EQ(error->number("context"), jlong(expected.context));
    EXPECT_EQ(error->number("fatal"), expected.fatal);
    EXPECT_EQ(error->number("argCount"), expected.argCount);
    ASSERT_NE(error->object("args"), nullptr);
    EXPECT_EQ(error->object("args")->longs, std::vector<jlong>(expected.args, expected.args + expected.argCount));
}

void Bridge::run(const Story& story, int level, int failing) {
    SCOPED_TRACE(story.steps + " at trace level " + std::to_string(level) + ", failing " + std::to_string(failing));
    std::string calls, lines, called;
    jint ends = 0;
    bool refused = false;
    std::optional<KciErrSType> record;
    std::function<void()> fault = [] {};
    std::map<std::string, unsigned> met;
    int at = 0;
    std::istringstream steps(story.steps);
    for (std::string step; std::getline(steps, step, '|'); at++) {
        std::string rest = step.substr(std::min(step.size(), step.find(' ') + 1));
        if (step.starts_with("KciErr") && step.find('(') == std::string::npos) {
            calls += " KciErr";
            const unsigned nth = ++met["KciErr"];
            const std::string asked = std::exchange(called, "");
            if (at == failing && hosted && asked.empty())
                return; // an error that no call left
            if (at == failing) {
                record = scriptError(), ends = -1;
                lines += clientFailure(*record, isdigit(rest[0]) ? std::stoi(rest) : 7);
                lines += rest == "again" ? returning(-1) : "";
                fault = [=, nthCall = met[asked]] {
                    client().fail(hosted ? asked : "KciErr", scriptError(), hosted ? nthCall : nth);
                    jni().loansExpected = rest == "loan";
                };
                break;
            }
        } else if (step.starts_with("Kci") && step.find('(') != std::string::npos) {
            calls += " " + step;
            called = step.substr(0, step.find('('));
            ++met[called];
        } else if (step.starts_with("lend ")) {
            const unsigned nth = ++met[rest];
            if (at == failing) {
                ends = -2, lines += allocationError();
                fault = [=] { jni().fail(rest, nth); };
                break;
            }
        } else if (step.starts_with("= ")) {
            if (story.error)
                record = *story.error, lines += errorRecord(*record);
            ends = std::stoi(rest), lines += ends == -2 ? allocationError() : returning(ends);
        } else if (step.starts_with("-> ")) {
            ends = std::stoi(rest);
        } else if (step.starts_with("! ") || step.starts_with("~ ")) {
            record = genericRecord(rest), ends = -1, refused = true;
            lines += step[0] == '!' ? genericFailure(rest) : debug("    GENERIC ERROR: " + rest) + errorRecord(*record);
        } else {
            lines += step[0] == '"' ? step.substr(1) : step.starts_with("[ INFO ] ") ? step + "\n" : debug(step);
        }
    }
    call(story.native, [&] {
        if (story.script)
            story.script();
        fault();
    });
    EXPECT_EQ(status, ends);
    const std::string expectedCalls = withoutErrorQuestions(calls.empty() ? "" : calls.substr(1));
    std::string actualCalls = withoutErrorQuestions(client().calls);
    // What Java or the bridge refuses, a host could not know when it asked ahead.
    if (hosted && (ends == -2 || refused))
        actualCalls.resize(std::min(actualCalls.size(), expectedCalls.size()));
    EXPECT_EQ(actualCalls, expectedCalls);
    EXPECT_TRUE(hosted || host().mallocs == 0);
    expectTrace(lines, level);
    if (record)
        expectError(*record);
    else
        EXPECT_EQ(describe(error), "");
    if (story.check && failing < 0)
        story.check();
}

void Bridge::expectTrace(const std::string& lines, int level) {
    std::string expected;
    std::istringstream in(lines);
    for (std::string line; level > 0 && std::getline(in, line);)
        expected += level > 1 || line.starts_with("[ INFO ] ") ? line + "\n" : "";
    // References are printed as numbers.
    for (size_t i = 0; i < jni().elementReferences.size(); i++) {
        const std::string mark = "{reference " + std::to_string(i) + "}";
        if (const auto at = expected.find(mark); at != std::string::npos)
            expected.replace(at, mark.size(), std::to_string(reinterpret_cast<intptr_t>(jni().elementReferences[i])));
    }
    EXPECT_EQ(trace, expected);
}

void Bridge::check(const std::vector<Story>& stories) {
    const auto refuse = [&](int level) {
        for (const Story& story : stories) {
            const size_t frame = story.steps.find(FRAME);
            const std::string intro = frame != std::string::npos         ? story.steps.substr(0, frame)
                                      : story.steps.starts_with("Login") ? "Login.|"
                                                                         : "";
            run({story.native, intro + "~ KCI: Not initialized"}, level);
        }
    };
    refuse(0);
    for (int level = 0; level <= 2; level++) {
        ASSERT_EQ(initialize({level}), 32);
        EXPECT_TRUE(level > 0 || trace.empty());
        for (const Story& story : stories) {
            run(story, level);
            std::istringstream steps(story.steps);
            int at = 0;
            for (std::string step; std::getline(steps, step, '|'); at++) {
                if (step.starts_with("lend ") || (step.starts_with("KciErr") && !step.ends_with("unchecked")))
                    run(story, level, at);
            }
        }
    }
    TmqKciInitialized = 0;
    refuse(2);
    TmqKciInitialized = 1;
}

} // namespace bridge
