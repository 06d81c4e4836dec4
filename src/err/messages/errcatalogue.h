// State of the message catalogue, and the look-up of symbols in the message file.
#pragma once

#include <string_view>

#include "err/messages/errentry.h"
#include "errutl.h"
#include "hostmutex.h"

#pragma GCC visibility push(hidden)

// Holds a mutex for a scope.
class ErrMsgAccessor {
public:
    explicit ErrMsgAccessor(HostMutexSType* mutex) : mutex(mutex) { HostMutexAcquire(mutex); }
    ~ErrMsgAccessor() { HostMutexRelease(mutex); }
    ErrMsgAccessor(const ErrMsgAccessor&) = delete;
    ErrMsgAccessor& operator=(const ErrMsgAccessor&) = delete;

private:
    HostMutexSType* mutex;
};

// The mutex of the message file, the catalogue and its flags. The first use makes it take part in forks.
HostMutexSType* printMutex();

// Takes the mutex, too, but gives up after a moment: the fatal report may have interrupted the thread that holds it.
bool tryPrintMutex();

// Every message is rendered the desperate way. Written under the mutex, read without.
bool errMsgPanicked();
void errMsgSetPanicked(bool panicked);

// Forgets what was looked up; call it under the mutex after the file has been opened anew.
void errMsgForgetLookups();

// Looks a symbol up in the file and parses its entry. Call it under the mutex, and run the hooks after its release. The
// entry's pattern is copied to the buffer, because the file may go as soon as the mutex is free.
bool findErrSym(std::string_view sym, ParsedEntry& entry, char (&buffer)[maxLogicalLine], PendingHooks& hooks);

#pragma GCC visibility pop
