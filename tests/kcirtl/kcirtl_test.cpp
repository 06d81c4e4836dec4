// The loader against real client libraries in temporary folders.
#include "dynlib.h"
#include "kcirtl.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::string NOT_FOUND = ": cannot open shared object file: No such file or directory";
const std::string NOTE = "\nThe KESTRUNE environment variable is not defined.\nSetting it should correct this error.\n";

class KciRtl : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/kcirtl-test-XXXXXX";
        folder = mkdtemp(pattern);
        for (const char* name : {"KESTRUNE", "KCIRTL_BASELIBNAME", "KCIRTL_VERSION", "CLIENT_LIBRARY_LOG"})
            unsetenv(name);
    }
    void TearDown() override { fs::remove_all(folder); }

    // Puts a copy of a library where the loader may look for it.
    std::string install(const std::string& library, const std::string& name) {
        const fs::path target = fs::path(folder) / name;
        fs::create_directories(target.parent_path());
        fs::copy_file(CLIENT_LIBRARIES + library + ".so", target, fs::copy_options::overwrite_existing);
        return target;
    }

    BoolType load(BoolType useRpc, const char* path, ArraySizeType size = 256) {
        testing::internal::CaptureStdout();
        const BoolType loaded = KciRtlLoad(useRpc, path, error, size);
        output = testing::internal::GetCapturedStdout();
        attempts.clear();
        const std::regex line("\\[Debug\\]: dlopen\\((.*)\\) failure: .+\n");
        for (std::sregex_iterator at(output.begin(), output.end(), line), end; at != end; ++at)
            attempts.push_back((*at)[1]);
        EXPECT_EQ(std::regex_replace(output, line, ""), "") << "nothing but failures is printed";
        EXPECT_EQ(loaded, rtlPrivKciRtlFuncs != nullptr);
        EXPECT_EQ(loaded, KciRtlIsLoaded());
        return loaded;
    }

    static std::string loadedFrom() {
        Dl_info info{};
        return rtlPrivKciRtlFuncs && dladdr(rtlPrivKciRtlFuncs, &info) ? info.dli_fname : "";
    }

    static std::string log() {
        const char* text = getenv("CLIENT_LIBRARY_LOG");
        return text ? text : "";
    }

    std::string folder, output;
    std::vector<std::string> attempts;
    char error[4096] = "untouched";
};

TEST_F(KciRtl, BuildsTheNameAndSearchesInOrder) {
    struct Row {
        const char *base, *version, *kestrune, *path;
        BoolType useRpc;
        std::vector<std::string> expected;
    };
    const std::string maximum(17, 'x');
    const Row rows[] = {
        {nullptr, nullptr, "/nowhere/k", nullptr, FALSE, {"/nowhere/k/lib/libkcilnk67.so", "libkcilnk67.so"}},
        {nullptr, nullptr, "/nowhere/k/", nullptr, TRUE, {"/nowhere/k/lib/libkcirpc67.so", "libkcirpc67.so"}},
        {nullptr, nullptr, "/nowhere/k\\", nullptr, FALSE, {"/nowhere/k\\lib/libkcilnk67.so", "libkcilnk67.so"}},
        {"", "", nullptr, nullptr, FALSE, {"libkcilnk67.so"}},
        {"abc", "68", "", nullptr, TRUE, {"libabcrpc68.so"}},
        {"abc", "6.8", nullptr, "/nowhere", FALSE, {"/nowhere/libabclnk6.8", "libabclnk6.8"}},
        {maximum.c_str(), "", nullptr, nullptr, FALSE, {}},
        {"fifteencharacte", "", nullptr, nullptr, FALSE, {"libfifteencharactelnk67.so"}},
        {nullptr,
         nullptr,
         "/nowhere/k",
         "/nowhere/a;/nowhere/b/;/nowhere/c\\",
         FALSE,
         {"/nowhere/a/libkcilnk67.so", "/nowhere/b/libkcilnk67.so", "/nowhere/c\\libkcilnk67.so",
          "/nowhere/k/lib/libkcilnk67.so", "libkcilnk67.so"}},
    };
    for (const Row& row : rows) {
        const auto set = [](const char* name, const char* value) { value ? setenv(name, value, 1) : unsetenv(name); };
        set("KCIRTL_BASELIBNAME", row.base);
        set("KCIRTL_VERSION", row.version);
        set("KESTRUNE", row.kestrune);
        EXPECT_FALSE(load(row.useRpc, row.path));
        EXPECT_EQ(attempts, row.expected);
        if (row.expected.empty())
            continue;
        const std::string bare = row.expected.back();
        const bool noKestrune = !row.kestrune || !*row.kestrune;
        EXPECT_EQ(error, "dlopen(" + bare + ") failed because " + bare + NOT_FOUND + (noKestrune ? NOTE : ""));
        EXPECT_TRUE(output.ends_with("[Debug]: dlopen(" + bare + ") failure: " + bare + NOT_FOUND + "\n"));
    }
}

TEST_F(KciRtl, TakesTheFirstThatOpens) {
    const std::string first = install("valid", "first/libkcilnk67.so");
    const std::string second = install("negative", "second/lib/libkcilnk67.so");
    setenv("KESTRUNE", (folder + "/second").c_str(), 1);
    EXPECT_TRUE(load(FALSE, (folder + "/none;" + folder + "/first").c_str()));
    EXPECT_EQ(loadedFrom(), first);
    EXPECT_EQ(attempts, std::vector{folder + "/none/libkcilnk67.so"});
    EXPECT_STREQ(error, "untouched");

    // A second load is refused and changes nothing.
    EXPECT_TRUE(KciRtlLoad(FALSE, nullptr, nullptr, 0) == FALSE);
    for (ArraySizeType size : {27u, 26u, 1u}) {
        memset(error, '#', sizeof error);
        EXPECT_FALSE(KciRtlLoad(FALSE, nullptr, error, size));
        EXPECT_STREQ(error, size == 27 ? "Library is already loaded." : "");
    }
    EXPECT_EQ(loadedFrom(), first);
    EXPECT_EQ(log(), "opened ");

    KciRtlUnload();
    EXPECT_FALSE(KciRtlIsLoaded());
    EXPECT_EQ(log(), "opened KciShutdown KciUnload closed ");
    KciRtlUnload();
    EXPECT_EQ(log(), "opened KciShutdown KciUnload closed ");

    EXPECT_TRUE(load(FALSE, nullptr));
    EXPECT_EQ(loadedFrom(), second);
    EXPECT_EQ(rtlPrivKciRtlFuncs->kciCompatiblityLevel, -1);
    KciRtlUnload();
}

// The dynamic linker's own search finds a library of this name that the process already holds.
TEST_F(KciRtl, FallsBackToTheBareName) {
    void* held = dlopen(install("valid", "held.so").c_str(), RTLD_LAZY);
    ASSERT_NE(held, nullptr);
    EXPECT_TRUE(load(FALSE, "/nowhere"));
    EXPECT_EQ(loadedFrom(), folder + "/held.so");
    EXPECT_EQ(attempts, std::vector<std::string>{"/nowhere/libkcilnk67.so"});
    KciRtlUnload();
    dlclose(held);
}

TEST_F(KciRtl, RefusesWhatIsNoFittingClientLibrary) {
    const std::string old = "Attempted to load old KCI library 'libkcilnk67'.\n";
    const std::string incompatible = "Attempted to load incompatible KCI library 'libkcilnk67'.\n";
    const std::pair<const char*, std::string> rows[] = {
        {"old", old}, {"old_incompatible", old}, {"incompatible", incompatible}};
    for (const auto& [library, expected] : rows) {
        install(library, "libkcilnk67.so");
        // The format, its "%s" included, and the name must fit.
        const auto needed = static_cast<ArraySizeType>(expected.size() + 2);
        for (ArraySizeType size : {256u, needed, needed - 1, 1u}) {
            unsetenv("CLIENT_LIBRARY_LOG");
            EXPECT_FALSE(load(FALSE, folder.c_str(), size)) << library;
            EXPECT_EQ(error, size >= needed ? expected : "") << library << " in " << size;
            EXPECT_EQ(log(), "opened closed ") << library;
        }
        EXPECT_FALSE(KciRtlLoad(FALSE, folder.c_str(), nullptr, 0));
    }

    install("no_entry", "libkcilnk67.so");
    unsetenv("CLIENT_LIBRARY_LOG");
    EXPECT_FALSE(load(FALSE, folder.c_str()));
    EXPECT_EQ(error,
              "dlsym(KciGetRtlTable) failed because " + folder + "/libkcilnk67.so: undefined symbol: KciGetRtlTable");
    EXPECT_EQ(log(), "opened closed ");
    EXPECT_EQ(output, "");

    // A failed load leaves room for a good one.
    install("valid", "libkcilnk67.so");
    EXPECT_TRUE(load(FALSE, folder.c_str()));
    KciRtlUnload();
}

// Whatever the environment holds, nothing is written outside the caller's buffer and the reason is told.
TEST_F(KciRtl, RefusesOverlongValues) {
    install("valid", "libkcilnk67.so");
    struct Row {
        const char* variable;
        size_t length;
    };
    for (const Row& row : {Row{"KCIRTL_BASELIBNAME", 16},
                           {"KCIRTL_BASELIBNAME", 100000},
                           {"KCIRTL_VERSION", 15},
                           {"KCIRTL_VERSION", 100000},
                           {"KESTRUNE", 2048},
                           {"KESTRUNE", 100000},
                           {"path", 1100},
                           {"path", 2100},
                           {"path", 100000}}) {
        for (const char* name : {"KESTRUNE", "KCIRTL_BASELIBNAME", "KCIRTL_VERSION"})
            unsetenv(name);
        const std::string value = std::string(row.length, 'x');
        const bool isPath = row.variable == std::string("path");
        if (!isPath)
            setenv(row.variable, value.c_str(), 1);
        const std::string path = isPath ? folder + "/none;" + value : folder + "/none";
        for (ArraySizeType size : {256u, 40u, 1u, 0u}) {
            memset(error, '#', sizeof error);
            EXPECT_FALSE(load(FALSE, path.c_str(), size)) << row.variable;
            EXPECT_EQ(error[size], '#');
            if (size > 0) {
                EXPECT_LT(strnlen(error, size), size) << "terminated";
            }
            if (size == 256) {
                EXPECT_GT(strlen(error), 10u) << row.variable << " of " << row.length;
                EXPECT_EQ(std::string(error).find("dlopen"), std::string::npos) << error;
            }
        }
        EXPECT_FALSE(KciRtlLoad(FALSE, path.c_str(), nullptr, 0));
    }
}

// A path of the greatest length that fits still works; empty elements are skipped or stand for the current folder.
TEST_F(KciRtl, AcceptsLongPathsAndEmptyElements) {
    const std::string name = install("valid", std::string(200, 'd') + "/" + std::string(200, 'e') + "/libkcilnk67.so");
    std::string path = ";;/nowhere;;" + fs::path(name).parent_path().string() + ";";
    EXPECT_TRUE(load(FALSE, path.c_str()));
    EXPECT_EQ(loadedFrom(), name);
    KciRtlUnload();
    EXPECT_FALSE(load(FALSE, ""));
}

// The note about KESTRUNE, terminator included, stays within the caller's buffer.
TEST_F(KciRtl, CutsMessagesToTheBuffer) {
    const std::string whole = "dlopen(libkcilnk67.so) failed because libkcilnk67.so" + NOT_FOUND + NOTE;
    for (ArraySizeType size = 1; size < whole.size() + 4; size++) {
        memset(error, '#', sizeof error);
        EXPECT_FALSE(load(FALSE, nullptr, size));
        EXPECT_EQ(error, whole.substr(0, size - 1)) << size;
        EXPECT_EQ(error[size], '#') << size;
    }
    memset(error, '#', sizeof error);
    EXPECT_FALSE(load(FALSE, nullptr, 0));
    EXPECT_EQ(error[0], '#');
}

TEST_F(KciRtl, KeepsTheFloatingPointEnvironment) {
    void* spoiler = dlopen(install("floating", "libkcilnk67.so").c_str(), RTLD_LAZY);
    EXPECT_EQ(fegetround(), FE_UPWARD) << "the library spoils it when nobody watches";
    dlclose(spoiler);
    fesetenv(FE_DFL_ENV);
    for (int rounding : {FE_TONEAREST, FE_DOWNWARD}) {
        fesetround(rounding);
        feclearexcept(FE_ALL_EXCEPT);
        const int excepted = fegetexcept();
        ASSERT_TRUE(load(FALSE, folder.c_str()));
        EXPECT_EQ(fegetround(), rounding);
        EXPECT_EQ(fegetexcept(), excepted);
        EXPECT_EQ(fetestexcept(FE_INEXACT), 0);
        fesetround(FE_TONEAREST);
        KciRtlUnload();
    }
}

TEST(DynLib, OpensAndLooksUp) {
    DynLibType handle = &handle;
    char error[512] = "untouched";
    const std::string none = "/nowhere/lib.d/libnone";

    testing::internal::CaptureStdout();
    EXPECT_FALSE(DynLibLoad(none.c_str(), &handle, error, sizeof error));
    EXPECT_EQ(handle, nullptr);
    const std::string reason = none + ".so" + NOT_FOUND;
    EXPECT_EQ(error, "dlopen(" + none + ".so) failed because " + reason);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[Debug]: dlopen(" + none + ".so) failure: " + reason + "\n");

    testing::internal::CaptureStdout();
    char shortError[8];
    EXPECT_FALSE(DynLibLoad("libnone.so.1", &handle, shortError, sizeof shortError));
    EXPECT_STREQ(shortError, "dlopen(");
    EXPECT_FALSE(DynLibLoad(std::string(5000, 'x').c_str(), &handle, error, sizeof error));
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("[Debug]: dlopen(libnone.so.1) failure: ", 0), 0u);

    const std::string valid = CLIENT_LIBRARIES "valid";
    ASSERT_TRUE(DynLibLoad(valid.c_str(), &handle, nullptr, 0));
    testing::internal::CaptureStdout();
    EXPECT_NE(DynLibGetFunc(handle, "KciGetRtlTable", error, sizeof error), nullptr);
    EXPECT_EQ(DynLibGetFunc(handle, "absent", nullptr, 0), nullptr);
    EXPECT_EQ(DynLibGetFunc(handle, "absent", error, sizeof error), nullptr);
    EXPECT_EQ(error, "dlsym(absent) failed because " + valid + ".so: undefined symbol: absent");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    DynLibUnload(handle);
    EXPECT_STREQ(getenv("CLIENT_LIBRARY_LOG"), "opened closed ");
    // Global: the process finds the library's symbols.
    ASSERT_TRUE(DynLibLoad(valid.c_str(), &handle, nullptr, 0));
    EXPECT_NE(dlsym(RTLD_DEFAULT, "KciGetRtlTable"), nullptr);
}

} // namespace
