// What tests of processes share: the messages, other users, and a check that nothing is left behind.
#pragma once

#include <set>
#include <string>
#include <sys/types.h>

#include "host/expect.h"

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
    std::set<std::string> descriptors;
};

// The exit status, or minus the number of the signal that ended it.
int waitFor(pid_t pid);
