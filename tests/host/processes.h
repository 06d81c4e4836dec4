// What tests of processes share: the messages, other users, and a check that nothing is left behind.
#pragma once

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "errmsg.h"
#include "support/expect.h"

// Has messages taken from the installation's message file. Call it in the process that formats them.
inline void useMessages(const Scratch& scratch) {
    std::filesystem::create_directories(scratch.file("kestrune/sys"));
    std::filesystem::copy_file(TMQKCI_MESSAGES, scratch.file("kestrune/sys/english67.err"),
                               std::filesystem::copy_options::skip_existing);
    setenv("KESTRUNE", scratch.file("kestrune").c_str(), 1);
    ErrMsgInit();
    ASSERT_FALSE(ErrMsgGetPanicked());
}

// Makes this process one of the ordinary user "nobody". False when it cannot.
inline bool becomeNobody() {
    const passwd* nobody = getpwnam("nobody");
    return nobody != nullptr && geteuid() == 0 && setgroups(0, nullptr) == 0 && setgid(nobody->pw_gid) == 0 &&
           setuid(nobody->pw_uid) == 0;
}

// Compares open descriptors, and looks for children that nobody waited for.
class NothingLeft {
public:
    ~NothingLeft() {
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        EXPECT_EQ(errno, ECHILD);
    }

private:
    static std::set<std::string> openDescriptors() {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code closedMeanwhile; // the iterator's own
            const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), closedMeanwhile);
            // The message file is opened anew and may change its number.
            if (!closedMeanwhile && target.string().find("/fd") == std::string::npos && target.extension() != ".err")
                found.insert(entry.path().filename().string() + " " + target.string());
        }
        return found;
    }
    const std::set<std::string> descriptors = openDescriptors();
};

// The exit status, or minus the number of the signal that ended it.
inline int waitFor(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
