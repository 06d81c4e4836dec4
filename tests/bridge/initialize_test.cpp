// _initialize: what it sets up and says, every way it fails, and buffers of odd sizes.
#include "bridge/harness.h"

#include "kcirtl.h"

extern JNIEnv* ENV;

namespace bridge {
namespace {

const char* const CLASSES[] = {"TmqKciReport", "TmqKciException", "TmqKciCacheStats"};

std::string loading() {
    return debug("libtmqkci loading:") + debug("SiZEOF int = 4") + debug("SIZEOF OopType = 4") +
           debug("SIZEOF jlong = 8") + debug("SizeOF jint   = 4") + debug("SIZEOF jint = 4");
}

class Initialize : public Bridge {
protected:
    // A failure that leaves the client library loaded would stand in the way of the next attempt.
    void expectFailure(const std::string& message, const Arguments& given, const std::function<void()>& script = {}) {
        SCOPED_TRACE(message);
        EXPECT_EQ(initialize(given, script), -1);
        expectError(genericRecord(message));
        if (given.debugFlag > 1) {
            EXPECT_TRUE(trace.ends_with(genericFailure(message))) << trace;
        }
        KciRtlUnload();
    }
    void expectTraced(const std::string& lines) {
        EXPECT_NE(trace.find(lines), std::string::npos) << lines << "not in\n" << trace;
    }
};

TEST_F(Initialize, SetsUpAndTraces) {
    EXPECT_EQ(initialize({}), 32);
    std::string fields;
    for (const char* name : CLASSES) {
        for (const std::string& field : jni().fieldNames(name))
            fields += debug("    JNI/Initialize:  Setting up FID " + field);
    }
    EXPECT_EQ(trace, loading() + debug("Initialize:  PreloadSize = 16/4") + fields +
                         debug("     Ready to KciRtlLoad: useLinked = 1") + debug("Checking product/version info..") +
                         debug("   Product..") + debug("             1") + debug("    Version..") +
                         debug("             6.7") + info("   KS/KCI Product = KS/S") +
                         info("   KS/KCI Version = 6.7") + info("  TMQ/KCI Version = 3.1.3") +
                         debug("     Ready to KciInitAppName: app") + debug("     Ready to KciInit..") +
                         debug("     Ready to setup buffers") + debug("Initialize: MaxBufferSize = 64/16") +
                         debug("libtmqkci311 initialization completed.") + returning(32));
    EXPECT_EQ(client().calls, "KciProduct() KciVersion() KciInitAppName('app', 1) KciInit()");
    EXPECT_EQ(host().opened, std::vector<std::string>{"/k/" LIB "/libkcilnk67.so"});
    EXPECT_EQ(host().mallocs, 3u);
    EXPECT_EQ(kernelOops->longs, (std::vector<jlong>{10, 1189, 3613, 3, 7, -536870912, 536870911, 38, 6, 1733, 1045,
                                                     1049, 1197, 1209, 1213, 0}));
    EXPECT_EQ(jni().count("DeleteLocalRef"), 2u) << "the statistics class is kept as it was found";

    // Again, with everything different: nothing is touched but the trace level.
    kernelOops->longs.assign(16, -1);
    EXPECT_EQ(initialize({.bufSize = 1, .preloadSize = 500}), 32);
    EXPECT_EQ(trace, loading() + debug("Already initialized.") + returning(32));
    EXPECT_EQ(client().callCount + jni().calls.size() + host().mallocs, 0u);
    EXPECT_EQ(kernelOops->longs, std::vector<jlong>(16, -1));
    JNIEnv another = *jni().env();
    EXPECT_EQ(Java_com_kestrune_tmqkci_TmqKciInterface__1initialize(&another, nullptr, 0, null, 0, 0, 0, null, null),
              32);
    EXPECT_EQ(ENV, jni().env());
    EXPECT_EQ(initialize({.debugFlag = 0}), 32);
    EXPECT_NE(trace, "") << "flags are never lowered";
}

TEST_F(Initialize, RaisesTheTraceLevelLater) {
    EXPECT_EQ(initialize({.debugFlag = 1, .useLinked = 0, .appName = nullptr}), 32);
    EXPECT_EQ(trace,
              info("   KS/KCI Product = KS/S") + info("   KS/KCI Version = 6.7") + info("  TMQ/KCI Version = 3.1.3"));
    EXPECT_EQ(client().calls, "KciProduct() KciVersion() KciInit()");
    EXPECT_EQ(host().opened, std::vector<std::string>{"/k/" LIB "/libkcirpc67.so"});
    EXPECT_EQ(initialize({.debugFlag = 7}), 32);
    EXPECT_EQ(trace, loading() + debug("Already initialized.") + returning(32));
}

TEST_F(Initialize, FailsWithoutClassesAndFields) {
    // The report's own class stands in where Java does not find the report's.
    expectFailure("preloadSize exceeds bufSize", {.preloadSize = 65}, [] { jni().missingClass = "TmqKciException"; });
    EXPECT_EQ(trace, loading() + genericFailure("preloadSize exceeds bufSize")) << "before anything is looked up";

    // Whole reports, although the report's own fields may not be known yet.
    kernelOops = nullptr; // is missed later
    for (const std::string name : CLASSES) {
        expectFailure("JNI: Can't find " + name, {}, [&] { jni().missingClass = name; });
        for (const std::string& field : jni().fieldNames(name)) {
            const std::string message = "JNI/Initialize: Field setup error on " + field;
            const auto script = [&] { jni().missingField = field; };
            if (name != "TmqKciException") {
                expectFailure(message, {}, script);
                continue;
            }
            // An error report without one of its fields is filled as far as it goes.
            EXPECT_EQ(initialize({}, script), -1);
            EXPECT_FALSE(error->wrote(field));
            EXPECT_TRUE(trace.ends_with(debug("    Generic Error return: " + message) + returning(-1))) << trace;
        }
    }
    expectFailure("NULL kernelOops argument", {});
    EXPECT_EQ(host().opened.size(), 0u) << "another attempt can succeed";
    // Java's own complaint about a short array reaches Java.
    kernelOops = jni().longArray(std::vector<jlong>(15));
    EXPECT_EQ(initialize({}, [this] { pendingAllowed = "ArrayIndexOutOfBoundsException"; }), 32);
}

TEST_F(Initialize, FailsWithTheWrongClientLibrary) {
    const std::string reason = "KciRtlLoad failure: dlopen(libkcilnk67.so) failed because not there";
    expectFailure(reason, {}, [] { host().loadable = false; });
    expectTraced(debug("     " + reason) + genericFailure(reason));
    expectTraced("[Debug]: dlopen(/k/" LIB "/libkcilnk67.so) failure: not there\n");
    EXPECT_EQ(client().calls, "");
    expectFailure("KciRtlLoad failure: dlopen(libkcilnk67.so) failed because (no error info returned)", {},
                  [] { host().loadable = host().tellsWhy = false; });
    EXPECT_EQ(trace.find("[Debug]"), std::string::npos);

    const std::pair<int, std::string> products[] = {{2, "KS/2G"}, {3, "KS/64"}, {4, ""}};
    for (const auto& [product, name] : products) {
        expectFailure("Incorrect version of libtmqkci loaded: wrong KS product", {},
                      [&] { client().results["KciProduct"] = {product}; });
        expectTraced(info("   KS/KCI Product = " + name));
        EXPECT_EQ(client().calls, "KciProduct() KciVersion() KciShutdown() KciUnload()");
    }
    const std::string endless(400, '9');
    for (const char* version : {"6.6.9", "6.10", "6.9.9999", endless.c_str()}) {
        const std::string message = "Incorrect version of libtmqkci: built for 6.7, running on " + std::string(version);
        expectFailure(message.substr(0, 299), {.debugFlag = 0}, [=] { client().version = version; });
    }
    expectFailure("Incorrect version of libtmqkci: built for 6.7, running on ", {}, [] { client().version = nullptr; });
    for (const char* version : {"6.7", "6.9.999"})
        expectFailure("KciInit failure", {}, [=] { client().version = version, client().results["KciInit"] = {0}; });
}

TEST_F(Initialize, FailsWhileSettingUp) {
    EXPECT_EQ(initialize({}, [] { jni().fail("GetStringUTFChars"); }), -2);
    EXPECT_TRUE(trace.ends_with(info("  TMQ/KCI Version = 3.1.3") + allocationError()));
    EXPECT_EQ(describe(error), "");
    KciRtlUnload();

    // An error with arguments, before there are buffers.
    const auto fails = [] { client().results["KciInit"] = {0}, client().fail("KciInit", scriptError()); };
    EXPECT_EQ(initialize({}, fails), -1);
    expectError(scriptError());
    EXPECT_TRUE(trace.ends_with(debug("     Ready to KciInit..") + clientFailure(scriptError(), -1)));
    EXPECT_EQ(client().calls, "KciProduct() KciVersion() KciInitAppName('app', 1) KciInit() KciErr");

    // The library that this attempt loaded stays.
    EXPECT_EQ(initialize({}, [] { client().fail("KciErr", scriptError()); }), -1);
    expectError(scriptError());
    expectFailure("KciRtlLoad failure: Library is already loaded.", {});

    const char* const buffers[] = {"Problem allocating byte buffer in initialize()",
                                   "Problem allocating oop buffer in initialize()",
                                   "Problem allocating jongBuf buffer in initialize()"};
    for (unsigned nth = 1; nth <= 3; nth++)
        expectFailure(buffers[nth - 1], {}, [=] { host().failingMalloc = nth; });
    expectFailure(buffers[0], {.bufSize = -1, .preloadSize = -1});
    expectTraced(debug("Initialize: MaxBufferSize = -1/0"));
    EXPECT_EQ(initialize({}), 32);
}

// A report is described and an error with all its arguments arrives, however small the buffers are.
class BufferSizes : public Initialize, public testing::WithParamInterface<std::pair<jint, jint>> {};

TEST_P(BufferSizes, HoldWhatIsWritten) {
    const auto [bufSize, preloadSize] = GetParam();
    const jint raised = preloadSize >= 0 && preloadSize < 16 ? 16 : preloadSize;
    ASSERT_EQ(initialize({.bufSize = bufSize, .preloadSize = preloadSize}), 32);
    const auto sizes = [](jint bytes) { return std::to_string(bytes) + "/" + std::to_string(bytes / 4); };
    expectTraced(debug("Initialize:  PreloadSize = " + sizes(raised)));
    expectTraced(debug("Initialize: MaxBufferSize = " + sizes(bufSize)));

    KciErrSType many = clientError(2101, std::string(400, 'm'), std::vector<OopType>(10, 0x80000001));
    EXPECT_EQ(call([&] { return CALL(checkErrors, 7); }, [&] { client().fail("KciPollForSignal", many); }), -1);
    expectError(many);

    const auto describe = [&] { return CALL(setup, 7, arg(result)); };
    EXPECT_EQ(call(describe, [&] { result->fields["oop"].number = 300; }), raised < 0 ? -2 : 0);
    EXPECT_NE(client().calls.find("(300, 1, " + std::to_string(std::max(raised, 0)) + ")"), std::string::npos);

    // The count of what is moved is limited by bufSize, not by what is preloaded.
    Object* longs = jni().longArray(std::vector<jlong>(100000));
    const jint room = bufSize / 4;
    EXPECT_EQ(call([&] { return CALL(changedOops, 7, arg(longs), room); },
                   [&] { client().changed.assign(size_t(room) + 1, 301); }),
              room);
    EXPECT_EQ(call([&] { return CALL(changedOops, 7, arg(longs), room + 1); }), -1);
}

INSTANTIATE_TEST_SUITE_P(Initialize, BufferSizes,
                         testing::Values(std::pair(0, 0), std::pair(10, 3), std::pair(10, -5), std::pair(17, 16)));

} // namespace
} // namespace bridge
