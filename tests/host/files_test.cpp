#include "hostfile.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "hostenv.h"
#include "hostunix.h"
#include "support/expect.h"
#include "syserror.h"
#include "utlhost.h"

namespace {
namespace fs = std::filesystem;

class Files : public testing::Test {
protected:
    Files() {
        fs::current_path(folder.path());
        std::ofstream("file") << "12345";
        fs::create_directory("dir");
        fs::create_symlink("file", "link");
        fs::create_symlink("nowhere", "dangling");
        mkfifo("fifo", 0600);
        // Beyond what 32 bits of seconds reach.
        EXPECT_EQ(system("touch -h -d 2040-01-01 *"), 0);
    }
    const Scratch folder;
};

TEST_F(Files, Kinds) {
    const std::pair<const char*, HostFileKindEType> cases[] = {
        {"file", HOST_FILE_KIND_FILE}, {"dir", HOST_FILE_KIND_DIR},      {"/dev/null", HOST_FILE_KIND_CHRDEVICE},
        {"link", HOST_FILE_KIND_LNK},  {"dangling", HOST_FILE_KIND_LNK}, {"fifo", HOST_FILE_KIND_OTHER},
        {"", HOST_FILE_KIND_ERROR},
    };
    for (const auto& [name, kind] : cases)
        EXPECT_EQ(HostFileType(name), kind) << name;
}

TEST_F(Files, ExistenceAndRemovalConcernTheLinkItself) {
    long size = -1;
    EXPECT_TRUE(HostFileExistSize("link", &size));
    EXPECT_EQ(size, 4) << "the length of the link's target";
    ASSERT_EQ(truncate64("file", 3LL << 30), 0);
    EXPECT_TRUE(HostFileExistSize("./file", &size));
    EXPECT_EQ(size, sizeof(long) == 4 ? LONG_MAX : static_cast<long>(3LL << 30));

    SysErrorSType err;
    EXPECT_TRUE(HostRemoveFile("link", &err));
    EXPECT_TRUE(HostFileExist("file"));
    EXPECT_FALSE(HostRemoveFile("link", &err));
    EXPECT_EQ(err.hostError, ENOENT);
    EXPECT_STREQ(err.errMsg, "unlink(link): No such file or directory");
}

TEST_F(Files, Opening) {
    setenv("FILES_ROOT", folder.path().c_str(), 1);
    SysErrorSType err;
    FILE* file = HostOpenFile("$FILES_ROOT/link", "rb+", &err, 0);
    ASSERT_NE(file, nullptr);
    EXPECT_NE(fcntl(fileno(file), F_GETFD) & FD_CLOEXEC, 0);
    fclose(file);
    EXPECT_FALSE(SysErrorIsSet(&err));
    EXPECT_EQ(HostOpenFile("/missing/file", "r", &err, 0), nullptr);
    EXPECT_STREQ(err.errMsg, "fopen(/missing/file,r): No such file or directory");
    EXPECT_EQ(HostOpenFile("file", "r", &err, 1), nullptr);
    EXPECT_EQ(err.hostError, EINVAL);
}

TEST(UtlFindExeFile, SearchesThreeFoldersInOrder) {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    std::array<char, 4096> found;
    const auto find = [&](const char* name) {
        return UtlFindExeFile(name, ".err", found.data(), found.size()) ? std::string(found.data()) : "none";
    };
    EXPECT_EQ(find("utl_find"), "none");
    // What leads to no file hides none.
    fs::create_symlink("/", folder / "utl_find.err");
    for (const char* place : {"../sys/", "../bin/", ""}) {
        fs::create_directory(folder / place);
        if (*place == '\0')
            fs::remove(folder / "utl_find.err");
        std::ofstream(folder / place / "utl_find.err").close();
        for (const char* name : {"/any/where/utl_find", "utl_find.err"})
            EXPECT_EQ(find(name), folder.string() + "/" + place + "utl_find.err");
    }
    EXPECT_FALSE(UtlFindExeFile("utl_find", ".err", found.data(), 8));
    EXPECT_EQ(find("utl_find/"), "none");
    for (const char* place : {"../sys/", "../bin/", ""})
        fs::remove(folder / place / "utl_find.err");
}

TEST(UtlExpandLogName, Patterns) {
    char host[256], date[16];
    ASSERT_TRUE(HostGetHostname(host, sizeof host));
    const time_t now = time(nullptr);
    strftime(date, sizeof date, "%Y-%m-%d", localtime(&now));
    const std::pair<const char*, std::string> cases[] = {
        // "": refused
        {"%N%P%M.log", "gemd" + std::to_string(getpid()) + host + ".log"},
        {"%H/%U-100%%", "/home/u/someone-100%"},
        {"%D", date},
        {"a%", ""},
        {"%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H", ""},
    };
    char text[512];
    for (const auto& [pattern, expanded] : cases) {
        EXPECT_EQ(UtlExpandLogName(pattern, "/opt/bin/gemd", "someone", "/home/u", text, 128), !expanded.empty());
        EXPECT_EQ(text, expanded) << pattern;
    }
    EXPECT_TRUE(UtlExpandLogName("%N %U %H", nullptr, nullptr, nullptr, text, sizeof text));
    const passwd* self = getpwuid(getuid());
    EXPECT_EQ(text, std::string(program_invocation_short_name) + " " + self->pw_name + " " + self->pw_dir);
}

TEST(HostUsers, NamesFitOrFail) {
    char text[4096];
    EXPECT_FALSE(HostGetHomeDir("no such user", text, sizeof text));
    EXPECT_STREQ(text, "");
    const auto homeOfRoot = [](char* home, unsigned size) { return HostGetHomeDir("root", home, size); };
    for (BoolType (*const get)(char*, unsigned) : {HostGetHostname, HostGetUserName, +homeOfRoot}) {
        ASSERT_TRUE(get(text, sizeof text));
        const unsigned length = strlen(text);
        EXPECT_TRUE(get(text, length + 1));
        EXPECT_FALSE(get(text, length));
        EXPECT_STREQ(text, "");
        EXPECT_FALSE(get(nullptr, 0));
    }
}
} // namespace
