// What tests of processes share: a folder of their own, scripts, the messages, and a check that nothing is left behind.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <sys/types.h>

// A folder that every user may write to, removed at the end.
class Scratch {
public:
    Scratch();
    ~Scratch();
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    // An executable shell script of the folder; returns its path.
    std::string script(const std::string& name, const std::string& text) const;
    std::string read(const std::string& name) const;

private:
    std::string path_;
};

// Has messages taken from the installation's message file. Call it in the process that formats them.
void useMessages(const Scratch& scratch);

// Makes this process one of the ordinary user "nobody". False when it cannot.
bool becomeNobody();

// Compares open descriptors, and looks for children that nobody waited for.
class NothingLeft {
public:
    NothingLeft();
    ~NothingLeft();

private:
    std::set<std::string> descriptors_;
};

// The exit status, or minus the number of the signal that ended it.
int waitFor(pid_t pid);
