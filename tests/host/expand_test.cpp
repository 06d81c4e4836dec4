#include "hostunix.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "host/names/hostexpand.h"
#include "support/expect.h"

namespace {
namespace fs = std::filesystem;

std::string expand(const std::string& name, LinkHandling links = LinkHandling::follow) {
    HostFnameStrType result;
    hostExpand(name.c_str(), result, sizeof result, links);
    return result;
}

// A folder tree with links; the working directory is its root.
class Expansion : public testing::Test {
protected:
    Expansion() {
        fs::current_path(root);
        fs::create_directories("dir/sub");
        fs::create_directory("real");
        fs::create_directory("away");
        std::ofstream("dir/file") << "x";
        const std::pair<std::string, std::string> links[] = {
            {"dir", "link"},  {root + "/dir", "abs"}, {"dir/file", "fileLink"}, {"../link/./sub/..", "dir/back"},
            {"self", "self"}, {"pong", "ping"},       {"ping", "pong"},         {"nowhere", "dangling"},
            {"/", "top"},     {"grow/x", "grow"},     {"../real", "dir/away"},
        };
        for (const auto& [target, name] : links)
            fs::create_symlink(target, name);
        unsetenv("BIG"); // no command could be started with it
        EXPECT_EQ(system("touch -h -d 2040-01-01 link fileLink dangling"), 0) << "seconds of more than 32 bits";
        setenv("K", "/opt/k", 1);
        setenv("RELATIVE", "dir/sub", 1);
        setenv("BIG", std::string(1 << 20, 'b').c_str(), 1);
        unsetenv("UNSET");
    }
    const Scratch folder;
    const std::string& root = folder.path();
};

struct Case {
    const char* name;
    const char* expanded;
    const char* withLinksKept; // NULL: the same
};
constexpr std::array cases{
    Case{"", "", nullptr},
    Case{"x/./y", "@/x/y", nullptr},
    Case{"/a/b/../../..", "/../", "/.."},
    Case{"/.", "", nullptr},
    Case{"/", "/", nullptr},
    Case{"dir/.", "@/dir/", "@/dir"},
    Case{"link/./file", "@/dir/file", "@/link/file"},
    Case{"abs/sub/missing", "@/dir/sub/missing", "@/abs/sub/missing"},
    Case{"missing/../link/x", "@/dir/x", "@/link/x"},
    Case{"fileLink", "@/dir/file", "@/fileLink"},
    Case{"dir/back/back/file", "@/dir/file", "@/dir/back/back/file"},
    Case{"dangling/x", "@/nowhere/x", "@/dangling/x"},
    // Only the empty component is taken back; for the kernel this is the folder @/away.
    Case{"dir//../away", "@/real/", "@/dir/away"},
    Case{"top/dev/null", "//dev/null", "@/top/dev/null"},
    Case{"self", "@/self", nullptr},
    Case{"ping", "@/pong", "@/ping"}, // 4095 links lead to the other one
    Case{"$K/bin/gstack", "/opt/k/bin/gstack", nullptr},
    Case{"$RELATIVE", "@/dir/sub/", "@/dir/sub"},
    Case{"$UNSET/bin/gstack", "$UNSET/bin/gstack", nullptr},
    Case{"$BIG/x", "$BIG/x", nullptr},
    Case{"/tmp_mnt/home/x", "/home/x", nullptr},
    Case{"/tmp_mntx/y", "/tmp_mntx/y", nullptr},
};

TEST_F(Expansion, TableOfCases) {
    for (const LinkHandling links : {LinkHandling::follow, LinkHandling::keep}) {
        for (const Case& c : cases) {
            std::string expected =
                links == LinkHandling::keep && c.withLinksKept != nullptr ? c.withLinksKept : c.expanded;
            if (expected.starts_with("@"))
                expected.replace(0, 1, root);
            EXPECT_EQ(expand(c.name, links), expected) << c.name;
        }
    }
}

// Whatever the name and the environment hold, exactly the given bytes are written.
TEST_F(Expansion, StaysWithinTheBuffer) {
    const auto expandInto = [](unsigned size, const std::string& name) {
        std::vector<char> buffer(size + 1, 'Z');
        HostExpandFileName(name.c_str(), buffer.data(), size);
        EXPECT_EQ(buffer[size], 'Z') << name.substr(0, 20) << ' ' << size;
        EXPECT_TRUE(size == 0 || memchr(buffer.data(), '\0', size) != nullptr) << name.substr(0, 20) << ' ' << size;
        return std::string(buffer.data(), strnlen(buffer.data(), size));
    };
    for (const std::string& name : {std::string(5000, 'n'), std::string("grow"), std::string("dir/back/x")}) {
        for (const unsigned size : {0U, 1U, 2U, 5U, 8U, 16U, 20U, 21U, 22U, 30U, 4096U, 8192U})
            expandInto(size, name);
    }
    // What does not fit is left out: the name stays in its last good form. Value, rest and terminator together count.
    EXPECT_EQ(expandInto(4, "dir"), "dir");
    EXPECT_EQ(expandInto(9, "$K/x"), "/opt/k/x");
    EXPECT_EQ(expandInto(8, "$K/x"), "$K/x");
    EXPECT_EQ(expandInto(8, "$BIG/x"), "$BIG/x");
    setenv("BIG", ("/" + std::string((1 << 20) - 1, 'b')).c_str(), 1);
    EXPECT_EQ(expandInto((1 << 20) + 3, "$BIG/x").size(), (1 << 20) + 2U);
}

TEST_F(Expansion, PrefixFromTheEnvironment) {
    setenv("KS_AutoMountPrefix", "/net/auto", 1);
    HostInit();
    EXPECT_EQ(expand("/net/auto/x"), "/x");
    EXPECT_EQ(expand("/tmp_mnt/x"), "/tmp_mnt/x");
    HostFnameStrType result;
    HostUnixExpandFileName("/net/auto/x", result, sizeof result);
    EXPECT_STREQ(result, "/net/auto/x");
}
} // namespace
