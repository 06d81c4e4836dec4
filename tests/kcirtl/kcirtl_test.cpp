// The loader against real client libraries in temporary folders.
#include "dynlib.h"
#include "kcirtl.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <elf.h>
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
        clear();
    }
    void TearDown() override { fs::remove_all(folder); }

    static void clear() {
        for (const char* name :
             {"KESTRUNE", "KCIRTL_BASELIBNAME", "KCIRTL_VERSION", "KCIRTL_HOST", "CLIENT_LIBRARY_LEVELS"})
            unsetenv(name);
        setenv("CLIENT_LIBRARY_LOG", "", 1);
    }

    // Puts a copy of a library where the loader may look for it.
    std::string install(const std::string& name = "libkcilnk67.so", const std::string& library = "scripted") {
        const fs::path target = fs::path(folder) / name;
        fs::create_directories(target.parent_path());
        fs::copy_file(CLIENT_LIBRARIES + library + ".so", target, fs::copy_options::overwrite_existing);
        return target;
    }

    // Whatever happens, the message stays in its room; it is untouched, all '#', after a success.
    BoolType load(BoolType useRpc, const char* path, ArraySizeType size = 256) {
        memset(error, '#', sizeof error);
        const bool wasLoaded = KciRtlIsLoaded();
        testing::internal::CaptureStdout();
        const BoolType loaded = KciRtlLoad(useRpc, path, error, size);
        output = testing::internal::GetCapturedStdout();
        attempts.clear();
        const std::regex line("\\[Debug\\]: dlopen\\((.*)\\) failure: .+\n");
        for (std::sregex_iterator at(output.begin(), output.end(), line), end; at != end; ++at)
            attempts.push_back((*at)[1]);
        EXPECT_EQ(std::regex_replace(output, line, ""), "") << "nothing but failures is printed";
        EXPECT_EQ(loaded || wasLoaded, rtlPrivKciRtlFuncs != nullptr);
        EXPECT_EQ(loaded || wasLoaded, KciRtlIsLoaded());
        EXPECT_EQ(error[loaded ? 0 : size], '#') << size;
        EXPECT_TRUE(loaded || size == 0 || strnlen(error, size) < size) << "terminated";
        return loaded;
    }

    static std::string loadedFrom() {
        Dl_info info{};
        return rtlPrivKciRtlFuncs && dladdr(rtlPrivKciRtlFuncs, &info) ? info.dli_fname : "";
    }

    static std::string log() { return getenv("CLIENT_LIBRARY_LOG"); }

    std::string folder, output;
    std::vector<std::string> attempts;
    char error[4096];
};

TEST_F(KciRtl, BuildsTheNameAndSearchesInOrder) {
    const struct Row {
        const char *base, *version, *kestrune, *path;
        BoolType useRpc;
        std::vector<std::string> expected;
    } rows[] = {
        {nullptr, nullptr, "/nowhere/k/", nullptr, TRUE, {"/nowhere/k/" LIB "/libkcirpc67.so", "libkcirpc67.so"}},
        {nullptr, nullptr, "/nowhere/k\\", nullptr, FALSE, {"/nowhere/k\\" LIB "/libkcilnk67.so", "libkcilnk67.so"}},
        {"abc", "68", "", nullptr, TRUE, {"libabcrpc68.so"}},
        {"abc", "6.8", nullptr, "/nowhere", FALSE, {"/nowhere/libabclnk6.8", "libabclnk6.8"}},
        {"fifteencharacte", "", nullptr, nullptr, FALSE, {"libfifteencharactelnk67.so"}},
        {nullptr,
         nullptr,
         "/nowhere/k",
         "/nowhere/a;/nowhere/b/;;/nowhere/c\\",
         FALSE,
         {"/nowhere/a/libkcilnk67.so", "/nowhere/b/libkcilnk67.so", "/nowhere/c\\libkcilnk67.so",
          "/nowhere/k/" LIB "/libkcilnk67.so", "libkcilnk67.so"}},
    };
    for (const Row& row : rows) {
        const auto set = [](const char* name, const char* value) { value ? setenv(name, value, 1) : unsetenv(name); };
        set("KCIRTL_BASELIBNAME", row.base);
        set("KCIRTL_VERSION", row.version);
        set("KESTRUNE", row.kestrune);
        EXPECT_FALSE(load(row.useRpc, row.path));
        EXPECT_EQ(attempts, row.expected);
        const std::string bare = row.expected.back(), reason = bare + NOT_FOUND;
        const bool noKestrune = !row.kestrune || !*row.kestrune;
        EXPECT_EQ(error, "dlopen(" + bare + ") failed because " + reason + (noKestrune ? NOTE : ""));
        EXPECT_TRUE(output.ends_with("[Debug]: dlopen(" + bare + ") failure: " + reason + "\n"));
    }
}

TEST_F(KciRtl, TakesTheFirstThatOpens) {
    const std::string first = install("first/libkcilnk67.so");
    const std::string second = install("second/" LIB "/libkcilnk67.so");
    setenv("KESTRUNE", (folder + "/second").c_str(), 1);
    EXPECT_TRUE(load(FALSE, (folder + "/none;" + folder + "/first").c_str()));
    EXPECT_EQ(loadedFrom(), first);
    EXPECT_EQ(attempts, std::vector{folder + "/none/libkcilnk67.so"});

    // A second load is refused and changes nothing.
    EXPECT_FALSE(KciRtlLoad(FALSE, nullptr, nullptr, 0));
    for (ArraySizeType size : {27u, 26u}) {
        EXPECT_FALSE(load(FALSE, nullptr, size));
        EXPECT_STREQ(error, size == 27 ? "Library is already loaded." : "");
    }
    EXPECT_EQ(loadedFrom(), first);
    EXPECT_EQ(log(), "opened ");
    for (int i = 0; i < 2; i++) {
        KciRtlUnload();
        EXPECT_FALSE(KciRtlIsLoaded());
        EXPECT_EQ(log(), "opened KciShutdown KciUnload closed ");
    }
    setenv("CLIENT_LIBRARY_LEVELS", "400 -1", 1);
    EXPECT_TRUE(load(FALSE, nullptr));
    EXPECT_EQ(loadedFrom(), second);
    EXPECT_EQ(rtlPrivKciRtlFuncs->kciCompatiblityLevel, -1);
    KciRtlUnload();
}

// The dynamic linker's own search finds a library of this name that the process already holds.
TEST_F(KciRtl, FallsBackToTheBareName) {
    void* held = dlopen(install("held.so").c_str(), RTLD_LAZY);
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
    const std::string noTable = "KCI library 'libkcilnk67' has no table of entry points.\n";
    const std::pair<const char*, std::string> rows[] = {{"311 0", old}, {"400 2", incompatible}, {"none", noTable}};
    install();
    for (const auto& [levels, expected] : rows) {
        // The format, its "%s" included, and the name must fit.
        const auto needed = static_cast<ArraySizeType>(expected.size() + 2);
        for (ArraySizeType size : {256u, needed, needed - 1, 1u}) {
            clear();
            setenv("CLIENT_LIBRARY_LEVELS", levels, 1);
            EXPECT_FALSE(load(FALSE, folder.c_str(), size)) << levels;
            EXPECT_EQ(error, size >= needed ? expected : "") << levels << " in " << size;
            EXPECT_EQ(log(), "opened closed ") << levels;
        }
        EXPECT_FALSE(KciRtlLoad(FALSE, folder.c_str(), nullptr, 0));
    }
    clear();
    const std::string noEntry = install("libkcilnk67.so", "no_entry");
    EXPECT_FALSE(load(FALSE, folder.c_str()));
    EXPECT_EQ(error, "dlsym(KciGetRtlTable) failed because " + noEntry + ": undefined symbol: KciGetRtlTable");
    EXPECT_EQ(log(), "opened closed ");

    // What is for another machine, or no library at all, is not offered to a host process.
    setenv("KCIRTL_HOST", "1", 1);
    for (const char* library : {CLIENT_LIBRARIES "scripted.so", OTHER_CLIENT_LIBRARIES "scripted.so"}) {
        for (const size_t damaged : {offsetof(Elf32_Ehdr, e_machine), size_t{EI_MAG0}}) {
            std::string bytes = contentsOf(library);
            bytes[damaged] = EM_ARM;
            std::ofstream(noEntry, std::ios::binary) << bytes;
            EXPECT_FALSE(load(FALSE, folder.c_str()));
            EXPECT_EQ(attempts.front(), noEntry);
        }
    }
    unsetenv("KCIRTL_HOST");

    // A failed load leaves room for a good one.
    install();
    setenv("CLIENT_LIBRARY_LEVELS", "312 1", 1);
    EXPECT_TRUE(load(FALSE, folder.c_str()));
    KciRtlUnload();
}

// Whatever the environment holds, nothing is written outside the caller's buffer and the reason is told.
TEST_F(KciRtl, RefusesOverlongValues) {
    install();
    const std::pair<const char*, size_t> rows[] = {{"KCIRTL_BASELIBNAME", 16},
                                                   {"KCIRTL_VERSION", 15},
                                                   {"KESTRUNE", 2048},
                                                   {"path", 1023},
                                                   {"path", 1100},
                                                   {"path", 2100},
                                                   {"KESTRUNE", 100000}};
    for (const auto& [variable, length] : rows) {
        clear();
        const std::string value(length, 'x');
        setenv(variable, value.c_str(), 1);
        const std::string path = folder + "/none" + (variable == std::string("path") ? ";" + value : "");
        for (ArraySizeType size : {40u, 1u, 0u, 256u})
            EXPECT_FALSE(load(FALSE, path.c_str(), size)) << variable;
        EXPECT_GT(strlen(error), 10u) << variable << " of " << length;
        EXPECT_EQ(std::string(error).find("dlopen"), std::string::npos) << error;
    }
    // A path that still fits works.
    clear();
    const std::string name = install(std::string(200, 'd') + "/" + std::string(200, 'e') + "/libkcilnk67.so");
    EXPECT_TRUE(load(FALSE, (";;/nowhere;;" + fs::path(name).parent_path().string() + ";").c_str()));
    EXPECT_EQ(loadedFrom(), name);
    KciRtlUnload();
}

// The note about KESTRUNE, terminator included, stays within the caller's buffer.
TEST_F(KciRtl, CutsMessagesToTheBuffer) {
    const std::string whole = "dlopen(libkcilnk67.so) failed because libkcilnk67.so" + NOT_FOUND + NOTE;
    for (ArraySizeType size = 0; size < whole.size() + 4; size++) {
        EXPECT_FALSE(load(FALSE, nullptr, size));
        EXPECT_EQ(std::string(error, strcspn(error, "#")).c_str(), whole.substr(0, size ? size - 1 : 0)) << size;
    }
}

TEST_F(KciRtl, KeepsTheFloatingPointEnvironment) {
    setenv("CLIENT_LIBRARY_SPOILS", "", 1);
    install();
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

// What is built for the other word size, or wanted apart, is opened by a host process.
TEST_F(KciRtl, OpensInAHost) {
    const bool is64 = sizeof(void*) == 8;
    const std::string own = is64 ? "/lib64/" : "/lib/", client = folder + "/lib/libkcilnk67.so";
    const auto copy = [&](const std::string& from, const std::string& to) {
        fs::create_directories(fs::path(to).parent_path());
        fs::copy_file(from, to, fs::copy_options::overwrite_existing);
    };
    const auto opensHosted = [&](BoolType useRpc, const char* path) {
        EXPECT_TRUE(load(useRpc, path)) << error;
        EXPECT_EQ(loadedFrom(), folder + own + "libkcirpc67.so");
        EXPECT_EQ(output + log(), "") << "nothing is opened here";
        KciRtlUnload();
        EXPECT_EQ(log(), "");
    };
    setenv("KESTRUNE", folder.c_str(), 1);
    copy(OTHER_CLIENT_LIBRARIES "scripted.so", client);
    EXPECT_FALSE(load(FALSE, nullptr));
    EXPECT_EQ(attempts, (std::vector<std::string>{client, "libkcilnk67.so"}));
    EXPECT_TRUE(std::string(error).ends_with("is missing: install tmqkci again.\n")) << error;
    setenv("KCIRTL_HOST", "1", 1);
    EXPECT_FALSE(load(FALSE, nullptr));
    EXPECT_STREQ(error,
                 "KCIRTL_HOST is 1, and libkcirpc67.so is not beside the bridge's library; install tmqkci again.");
    unsetenv("KCIRTL_HOST");

    copy(CLIENT_LIBRARIES "scripted.so", folder + own + "libkcirpc67.so"); // one that serves nothing
    EXPECT_FALSE(load(FALSE, nullptr));
    EXPECT_TRUE(std::string(error).ends_with("is missing: install tmqkci again.\n")) << error;
    setenv("CLIENT_LIBRARY_LOG", "", 1);
    copy(REMOTE "/lib" + std::string(is64 ? "64" : "") + "/libkcirpc67.so", folder + own + "libkcirpc67.so");
    for (const char* host : {"/bin/tmqkci-host32", "/bin/tmqkci-host64"})
        copy(REMOTE + std::string(host), folder + host);
    opensHosted(FALSE, nullptr);
    setenv("CLIENT_LIBRARY_LEVELS", "311 0", 1);
    EXPECT_FALSE(load(FALSE, nullptr));
    EXPECT_STREQ(error, "Attempted to load old KCI library 'libkcilnk67'.\n");

    // One of this word size stays in the process; on request it does not, wherever it is found.
    unsetenv("CLIENT_LIBRARY_LEVELS");
    install("elsewhere/libkcilnk67.so");
    const std::string elsewhere = folder + "/elsewhere";
    EXPECT_TRUE(load(FALSE, elsewhere.c_str()));
    EXPECT_EQ(loadedFrom(), elsewhere + "/libkcilnk67.so");
    KciRtlUnload();
    clear();
    setenv("KESTRUNE", folder.c_str(), 1);
    setenv("KCIRTL_HOST", "1", 1);
    opensHosted(FALSE, elsewhere.c_str());
    fs::remove(client);
    EXPECT_FALSE(load(FALSE, nullptr));
    EXPECT_TRUE(std::string(error).starts_with("dlopen(libkcilnk67.so) failed because ")) << error;
    // Found by its own name, the remote client library opens the linked one beside it.
    install(own.substr(1) + "libkcilnk67.so");
    opensHosted(TRUE, nullptr);
    fs::remove(folder + own + "libkcilnk67.so");
    EXPECT_FALSE(load(TRUE, nullptr));
    EXPECT_TRUE(std::string(error).find("libkcilnk67.so") != std::string::npos) << error;
}

// As far as the loader does not call for it.
TEST(DynLib, OpensAndLooksUp) {
    DynLibType handle = &handle;
    char error[512];
    testing::internal::CaptureStdout();
    EXPECT_FALSE(DynLibLoad("/nowhere/lib.d/libnone.so.1", &handle, error, 8));
    EXPECT_STREQ(error, "dlopen(");
    EXPECT_EQ(handle, nullptr);
    EXPECT_FALSE(DynLibLoad(std::string(5000, 'x').c_str(), &handle, error, sizeof error));
    EXPECT_FALSE(DynLibLoad("/nowhere/lib.d/libnone", &handle, error, sizeof error));
    EXPECT_EQ(error, "dlopen(/nowhere/lib.d/libnone.so) failed because /nowhere/lib.d/libnone.so" + NOT_FOUND);
    testing::internal::GetCapturedStdout();

    ASSERT_TRUE(DynLibLoad(CLIENT_LIBRARIES "scripted", &handle, nullptr, 0));
    EXPECT_NE(DynLibGetFunc(handle, "KciGetRtlTable", error, sizeof error), nullptr);
    EXPECT_EQ(DynLibGetFunc(handle, "absent", nullptr, 0), nullptr);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "KciGetRtlTable"), nullptr) << "global";
}

} // namespace
