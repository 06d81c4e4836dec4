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

class BorrowedSignal {
public:
    constexpr explicit BorrowedSignal(int signal) : signal_(signal) {}

    // Holds one loan. errno is kept.
    class AsDefault;
    class Ignored;

private:
    enum class Disposition { own, ignored, byDefault };

    void change(int& users, int by);
    void apply(Disposition wanted);

    const int signal_;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    int defaultUsers_ = 0;
    int ignoringUsers_ = 0;
    Disposition current_ = Disposition::own;
    struct sigaction own_ = {};
};

class BorrowedSignal::AsDefault {
public:
    explicit AsDefault(BorrowedSignal& signal) : signal_(signal) { signal_.change(signal_.defaultUsers_, 1); }
    ~AsDefault() { signal_.change(signal_.defaultUsers_, -1); }
    AsDefault(const AsDefault&) = delete;
    AsDefault& operator=(const AsDefault&) = delete;

private:
    BorrowedSignal& signal_;
};

class BorrowedSignal::Ignored {
public:
    explicit Ignored(BorrowedSignal& signal) : signal_(signal) { signal_.change(signal_.ignoringUsers_, 1); }
    ~Ignored() { signal_.change(signal_.ignoringUsers_, -1); }
    Ignored(const Ignored&) = delete;
    Ignored& operator=(const Ignored&) = delete;

private:
    BorrowedSignal& signal_;
};
