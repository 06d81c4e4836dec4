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
#include "support/child.h"
#include "syserror.h"
#include "utlhost.h"

namespace {
namespace fs = std::filesystem;

class Files : public testing::Test {
protected:
    Files() {
        std::string pattern = fs::temp_directory_path() / "files.XXXXXX";
        root = mkdtemp(pattern.data());
        fs::current_path(root);
        std::ofstream("file") << "12345";
        fs::create_directory("dir");
        fs::create_symlink("file", "link");
        fs::create_symlink("nowhere", "dangling");
        mkfifo("fifo", 0600);
    }
    ~Files() override {
        fs::current_path("/");
        fs::remove_all(root);
    }
    std::string root;
};

TEST_F(Files, Kinds) {
    struct Case {
        const char* name;
        HostFileKindEType kind;
    };
    for (const Case& c : std::array<Case, 8>{{{"file", HOST_FILE_KIND_FILE},
                                              {"dir", HOST_FILE_KIND_DIR},
                                              {"/dev/null", HOST_FILE_KIND_CHRDEVICE},
                                              {"link", HOST_FILE_KIND_LNK},
                                              {"dangling", HOST_FILE_KIND_LNK},
                                              {"fifo", HOST_FILE_KIND_OTHER},
                                              {"missing", HOST_FILE_KIND_ERROR},
                                              {"", HOST_FILE_KIND_ERROR}}})
        EXPECT_EQ(HostFileType(c.name), c.kind) << c.name;
}

TEST_F(Files, ExistenceAndRemovalConcernTheLinkItself) {
    long size = -1;
    EXPECT_TRUE(HostFileExistSize("./file", &size));
    EXPECT_EQ(size, 5);
    EXPECT_TRUE(HostFileExist("dangling"));
    EXPECT_TRUE(HostFileExistSize("link", &size));
    EXPECT_EQ(size, 4) << "the length of the link's target";

    SysErrorSType err;
    EXPECT_TRUE(HostRemoveFile("link", &err));
    EXPECT_FALSE(HostFileExist("link"));
    EXPECT_TRUE(HostFileExist("file"));
    EXPECT_FALSE(HostRemoveFile("link", &err));
    EXPECT_EQ(err.hostError, ENOENT);
    EXPECT_STREQ(err.errMsg, "unlink(link): No such file or directory");
    EXPECT_FALSE(HostRemoveFile("dir", nullptr));
}

TEST_F(Files, BeyondTwoGigabytes) {
    std::ofstream("huge").close();
    ASSERT_EQ(truncate64("huge", 3LL << 30), 0);
    long size = 0;
    EXPECT_TRUE(HostFileExistSize("huge", &size));
    EXPECT_EQ(size, sizeof(long) == 4 ? LONG_MAX : static_cast<long>(3LL << 30));
}

TEST_F(Files, Opening) {
    setenv("FILES_ROOT", root.c_str(), 1);
    SysErrorSType err;
    for (const char* mode : {"r", "r+", "rb+"}) {
        FILE* file = HostOpenFile("$FILES_ROOT/link", mode, &err, 0);
        ASSERT_NE(file, nullptr) << mode;
        EXPECT_NE(fcntl(fileno(file), F_GETFD) & FD_CLOEXEC, 0) << mode;
        fclose(file);
    }
    EXPECT_FALSE(SysErrorIsSet(&err));
    EXPECT_EQ(HostOpenFile("/missing/file", "r", &err, 0), nullptr);
    EXPECT_STREQ(err.errMsg, "fopen(/missing/file,r): No such file or directory");
    EXPECT_EQ(HostOpenFile("file", "r", &err, 1), nullptr);
    EXPECT_EQ(err.hostError, EINVAL);
    EXPECT_EQ(HostOpenFile("file", "", &err, 0), nullptr);
    EXPECT_EQ(HostOpenFile(std::string(9000, 'n').c_str(), std::string(9000, 'r').c_str(), &err, 0), nullptr);
}

TEST(UtlFindExeFile, SearchesThreeFoldersInOrder) {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    std::array<char, 4096> found;
    const auto find = [&](const char* name) {
        return UtlFindExeFile(name, ".err", found.data(), found.size()) ? std::string(found.data()) : "none";
    };
    EXPECT_EQ(find("/any/where/utl_find"), "none");
    for (const char* place : {"../sys/", "../bin/", ""}) {
        fs::create_directory(folder / place);
        std::ofstream(folder / place / "utl_find.err").close();
        EXPECT_EQ(find("/any/where/utl_find"), folder.string() + "/" + place + "utl_find.err");
        EXPECT_EQ(find("utl_find.err"), folder.string() + "/" + place + "utl_find.err");
        EXPECT_FALSE(UtlFindExeFile("utl_find", ".err", found.data(), 8));
    }
    EXPECT_EQ(find("utl_find.txt"), "none");
    EXPECT_EQ(find("utl_find/"), "none");
    for (const char* place : {"", "../bin/", "../sys/"})
        fs::remove(folder / place / "utl_find.err");
    for (const char* place : {"../bin", "../sys"}) {
        std::error_code notEmpty;
        fs::remove(folder / place, notEmpty);
    }
}

TEST(UtlExpandLogName, Patterns) {
    std::array<char, 256> host;
    std::array<char, 256> home;
    std::array<char, 256> user;
    ASSERT_TRUE(HostGetHostname(host.data(), host.size()));
    ASSERT_TRUE(HostGetHomeDir(nullptr, home.data(), home.size()));
    ASSERT_TRUE(HostGetUserName(user.data(), user.size()));
    std::array<char, 16> date;
    const time_t now = time(nullptr);
    strftime(date.data(), date.size(), "%Y-%m-%d", localtime(&now));
    const std::string pid = std::to_string(getpid());
    struct Case {
        const char* pattern;
        std::string expanded; // "": refused
    };
    for (const Case& c : std::array<Case, 9>{{{"%N%P%M.log", "gemd" + pid + host.data() + ".log"},
                                              {"%H/%U-100%%", "/home/u/someone-100%"},
                                              {"plain", "plain"},
                                              {"%D", date.data()},
                                              {"", ""},
                                              {"a%", ""},
                                              {"a%x", ""},
                                              {"%n", ""},
                                              {"%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H%H", ""}}}) {
        std::array<char, 128> text;
        const BoolType good =
            UtlExpandLogName(c.pattern, "/opt/bin/gemd", "someone", "/home/u", text.data(), text.size());
        EXPECT_EQ(text.data(), c.expanded) << c.pattern;
        EXPECT_EQ(good, !c.expanded.empty() || *c.pattern == '\0') << c.pattern;
    }
    std::array<char, 512> own;
    EXPECT_TRUE(UtlExpandLogName("%N %U %H", nullptr, nullptr, nullptr, own.data(), own.size()));
    EXPECT_EQ(own.data(), std::string(program_invocation_short_name) + " " + user.data() + " " + home.data());
}

TEST(HostUsers, NamesFitOrFail) {
    const passwd* root = getpwnam("root");
    std::array<char, 4096> text;
    EXPECT_TRUE(HostGetHomeDir("root", text.data(), text.size()));
    EXPECT_STREQ(text.data(), root->pw_dir);
    EXPECT_FALSE(HostGetHomeDir("no such user", text.data(), text.size()));
    EXPECT_STREQ(text.data(), "");
    for (const auto get : {HostGetHostname, HostGetUserName}) {
        ASSERT_TRUE(get(text.data(), text.size()));
        const unsigned length = strlen(text.data());
        EXPECT_TRUE(get(text.data(), length + 1));
        EXPECT_FALSE(get(text.data(), length));
        EXPECT_STREQ(text.data(), "");
        EXPECT_FALSE(get(nullptr, 0));
    }
}

TEST(HostSignalSafePrint, WritesAll) {
    const std::string text(300000, 't'); // more than a pipe holds
    const ChildResult child = runInChild([&] { HostSignalSafePrint(text.c_str()); });
    EXPECT_EQ(child.err, text);
}
} // namespace
