// A signal's disposition, changed for a while. Dispositions belong to the process, and several threads may want the
// same signal changed at overlapping times:
//
//     thread A   ignores |--------------|
//     thread B                  ignores |-----------|  (putting back what it found would leave it ignored for ever)
//
// So the first borrower keeps what was there and the last puts it back. Whoever wants the default disposition has it
// over those who want the signal ignored: a child's status is lost while SIGCHLD is ignored.
#pragma once

#include <csignal>
#include <pthread.h>

#pragma GCC visibility push(hidden)

class BorrowedSignal {
public:
    constexpr explicit BorrowedSignal(int signal) : number(signal) {}

    // Holds one loan. errno is kept.
    class AsDefault;
    class Ignored;

private:
    enum class Disposition { own, ignored, byDefault };

    void change(int& users, int by);
    void apply(Disposition wanted);

    const int number;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    int defaultUsers = 0;
    int ignoringUsers = 0;
    Disposition current = Disposition::own;
    struct sigaction ownAction = {};
};

class BorrowedSignal::AsDefault {
public:
    explicit AsDefault(BorrowedSignal& signal) : borrowed(signal) { borrowed.change(borrowed.defaultUsers, 1); }
    ~AsDefault() { borrowed.change(borrowed.defaultUsers, -1); }
    AsDefault(const AsDefault&) = delete;
    AsDefault& operator=(const AsDefault&) = delete;

private:
    BorrowedSignal& borrowed;
};

class BorrowedSignal::Ignored {
public:
    explicit Ignored(BorrowedSignal& signal) : borrowed(signal) { borrowed.change(borrowed.ignoringUsers, 1); }
    ~Ignored() { borrowed.change(borrowed.ignoringUsers, -1); }
    Ignored(const Ignored&) = delete;
    Ignored& operator=(const Ignored&) = delete;

private:
    BorrowedSignal& borrowed;
};

#pragma GCC visibility pop
