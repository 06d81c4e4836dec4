// Holds a mutex for a scope. A failure is reported through HostMutexError.
#pragma once

#include "hostmutex.h"

#pragma GCC visibility push(hidden)

class HostMutexAccessor {
public:
    explicit HostMutexAccessor(HostMutexSType& aMutex) : mutex(aMutex) { lock(); }
    ~HostMutexAccessor() { unlock(); }
    HostMutexAccessor(const HostMutexAccessor&) = delete;
    HostMutexAccessor& operator=(const HostMutexAccessor&) = delete;

    // Runs a function while the mutex is free.
    template <typename Function>
    void withoutLock(Function function) {
        unlock();
        function();
        lock();
    }

private:
    void lock() {
        if (pthread_mutex_lock(&mutex) != 0) [[unlikely]] {
            HostMutexError(__LINE__);
        }
    }
    void unlock() {
        if (pthread_mutex_unlock(&mutex) != 0) [[unlikely]] {
            HostMutexError(__LINE__);
        }
    }

    HostMutexSType& mutex;
};

#pragma GCC visibility pop
