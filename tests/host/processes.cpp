#include "host/processes.h"

#include <cerrno>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "errmsg.h"

namespace fs = std::filesystem;

namespace {
std::set<std::string> openDescriptors() {
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code closedMeanwhile; // the iterator's own
        const fs::path target = fs::read_symlink(entry.path(), closedMeanwhile);
        // The message file is opened anew and may change its number.
        if (!closedMeanwhile && target.string().find("/fd") == std::string::npos && target.extension() != ".err")
            found.insert(entry.path().filename().string() + " " + target.string());
    }
    return found;
}
} // namespace

void useMessages(const Scratch& scratch) {
    fs::create_directories(scratch.file("kestrune/sys"));
    fs::copy_file(TMQKCI_MESSAGES, scratch.file("kestrune/sys/english67.err"), fs::copy_options::skip_existing);
    setenv("KESTRUNE", scratch.file("kestrune").c_str(), 1);
    ErrMsgInit();
    ASSERT_FALSE(ErrMsgGetPanicked());
}

bool becomeNobody() {
    const passwd* nobody = getpwnam("nobody");
    return nobody != nullptr && geteuid() == 0 && setgroups(0, nullptr) == 0 && setgid(nobody->pw_gid) == 0 &&
           setuid(nobody->pw_uid) == 0;
}

NothingLeft::NothingLeft() : descriptors(openDescriptors()) {}

NothingLeft::~NothingLeft() {
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    EXPECT_EQ(errno, ECHILD);
}

int waitFor(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
