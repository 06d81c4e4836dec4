#include "bridge/harness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <sstream>

namespace {

bridge::Host theHost;
char handle; // stands for the opened client library
bool watching = false;

} // namespace

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
    return name == std::string("KciGetRtlTable") ? reinterpret_cast<void*>(&KciGetRtlTable) : nullptr;
}
char* __wrap_dlerror() {
    static char text[] = "not there";
    return text;
}
int __wrap_dlclose(void*) {
    return 0;
}

// Asking for a huge buffer fails instead of ending the program.
__attribute__((visibility("default"))) const char* __asan_default_options() {
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

std::u16string widen(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
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

std::string genericError(const std::string& message) {
    KciErrSType error = clientError(2318, message);
    error.category = KCI_OOP_NIL;
    return debug("    GENERIC ERROR: " + message) + errorRecord(error);
}

std::string genericFailure(const std::string& message) {
    return genericError(message) + debug("    Generic Error return: " + message) + returning(-1);
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

jint Bridge::initialize(jint debugFlag, jint bufSize, jint preloadSize) {
    return call([&] {
        return Java_com_kestrune_tmqkci_TmqKciInterface__1initialize(
            jni().env(), nullptr, 1, arg(u"app"), bufSize, preloadSize, debugFlag, arg(kernelOops), arg(error));
    });
}

jint Bridge::call(const std::function<jint()>& native, const std::function<void()>& script) {
    jni().beginCall();
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
    EXPECT_EQ(message->text, widen(expected.message));
    EXPECT_EQ(error->number("number"), expected.number);
    EXPECT_EQ(error->number("category"), jlong(expected.category));
    EXPECT_EQ(error->number("context"), jlong(expected.context));
    EXPECT_EQ(error->number("fatal"), expected.fatal);
    EXPECT_EQ(error->number("argCount"), expected.argCount);
    ASSERT_NE(error->object("args"), nullptr);
    EXPECT_EQ(error->object("args")->longs, std::vector<jlong>(expected.args, expected.args + expected.argCount));
}

void Bridge::expectGenericError(const std::string& message) {
    KciErrSType expected = clientError(2318, message);
    expected.category = KCI_OOP_NIL;
    expectError(expected);
}

void Bridge::expectRefused(const std::function<jint()>& native, const std::string& beginning,
                           const std::function<void()>& script) {
    EXPECT_EQ(call(native, script), -1);
    EXPECT_EQ(error->number("number"), 2318);
    ASSERT_NE(error->object("message"), nullptr);
    const std::string message = escape(error->object("message")->text);
    EXPECT_TRUE(message.starts_with(beginning) && message.size() > beginning.size()) << message;
}

std::vector<Bridge::Method> Bridge::methods() {
    const auto object = [] { return arg(server(300)); };
    const auto objects = [] { return arg(std::vector{server(301)}); };
    const auto bytes = [] { return arg(jni().byteArray({1})); };
    const auto longs = [] { return arg(jni().longArray({300})); };
    return {
        {"kciVersion", "", false, [=, this] { return CALL(kciVersion, objects()); }},
        {"login", "[DEBUGC] Login.\n", false,
         [this] { return CALL(login, arg(u"srv"), null, arg(u"usr"), arg(u"pwd"), null, null); }},
        {"logout", "[DEBUGC] Logout session: 7\n", true, [this] { return CALL(logout, 7); }},
        {"setup", "", true, [=, this] { return CALL(setup, 7, object()); }},
        {"nbEnd", "[DEBUGC] NbEnd: 7 ", true, [=, this] { return CALL(nbEnd, 7, object()); }},
        {"checkErrors", "[DEBUGC] CheckErrors: 7\n", true, [this] { return CALL(checkErrors, 7); }},
        {"executeStr", "[DEBUGC] ExecuteStr: 7\n", true, [this] { return CALL(executeStr, 7, arg(u"nil")); }},
        {"executeObj", "[DEBUGC] ExecuteObj: 7\n", true, [=, this] { return CALL(executeObj, 7, object()); }},
        {"perform", "[DEBUGC] Perform: 7\n", true,
         [=, this] { return CALL(perform, 7, object(), arg(u"at:"), objects(), 1); }},
        {"continue", "[DEBUGC] Continue: 7\n", true,
         [=, this] { return CALL(continue, 7, object(), JNI_FALSE, null, object(), null, null); }},
        {"isKindOf", "[DEBUGC] isKindOf: 7\n", true, [=, this] { return CALL(isKindOf, 7, object(), object()); }},
        {"getBytes", "[DEBUGC] 7: getBytes start 1 num 1\n", true,
         [=, this] { return CALL(getBytes, 7, object(), 1, 1, bytes()); }},
        {"getObjs", "[DEBUGC] 7: GetObjs start 1 num 1\n", true,
         [=, this] { return CALL(getObjs, 7, object(), 1, 1, objects()); }},
        {"getNamedObjs", "[DEBUGC] 7: getNamedObjs start 1 num 1\n", true,
         [=, this] { return CALL(getNamedObjs, 7, object(), 1, 1, objects()); }},
        {"putBytes", "[DEBUGC] 7: putBytes start 1 num 1\n", true,
         [=, this] { return CALL(putBytes, 7, object(), 1, 1, bytes()); }},
        {"putObjs", "[DEBUGC] 7: putObjs start 1 num 1\n", true,
         [=, this] { return CALL(putObjs, 7, object(), 1, 1, objects()); }},
        {"putNamedObjs", "[DEBUGC] 7: putNamedObjs start 1 num 1\n", true,
         [=, this] { return CALL(putNamedObjs, 7, object(), 1, 1, objects()); }},
        {"removeFromExportSet", "[DEBUGC] RemoveFromExportSet: 7\n", true,
         [=, this] { return CALL(removeFromExportSet, 7, objects(), 1); }},
        {"releaseOops", "[DEBUGC] ReleaseOops: 7\n", true, [=, this] { return CALL(releaseOops, 7, longs(), 1); }},
        {"changedOops", "[DEBUGC] ChangedOops: 7\n", true, [=, this] { return CALL(changedOops, 7, longs(), 1); }},
    };
}

void Bridge::check(const Row& row, int level) {
    SCOPED_TRACE(std::string(row.name) + " at trace level " + std::to_string(level));
    EXPECT_EQ(call(row.native, row.script), row.status);
    EXPECT_EQ(client().calls, row.client);
    EXPECT_EQ(host().mallocs, 0u);

    std::string expected;
    std::istringstream lines(row.trace);
    for (std::string line; level > 0 && std::getline(lines, line);)
        expected += level > 1 || line.starts_with("[ INFO ] ") ? line + "\n" : "";
    // References are printed as numbers.
    for (size_t i = 0; i < jni().elementReferences.size(); i++) {
        const std::string mark = "{reference " + std::to_string(i) + "}";
        if (const auto at = expected.find(mark); at != std::string::npos)
            expected.replace(at, mark.size(), std::to_string(reinterpret_cast<intptr_t>(jni().elementReferences[i])));
    }
    EXPECT_EQ(trace, expected);

    if (!row.error.empty()) {
        expectGenericError(row.error);
    } else if (row.status == -1) {
        expectError(scriptError());
    } else {
        EXPECT_EQ(describe(error), "");
    }
    if (row.check)
        row.check();
}

void Bridge::check(const std::vector<Row>& rows) {
    for (int level = 0; level <= 2; level++) {
        ASSERT_EQ(initialize(level), 32);
        for (const Row& row : rows)
            check(row, level);
    }
}

} // namespace bridge
