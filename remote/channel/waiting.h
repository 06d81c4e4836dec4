// How one side waits for a word that the other side changes: spinning for a short time, then asleep on a futex.
#pragma once

#include <atomic>
#include <cstdint>

namespace remote {

// A word in shared memory; the same on both word sizes.
using Word = std::atomic<uint32_t>;
static_assert(sizeof(Word) == 4 && Word::is_always_lock_free);

// A word that says that the side that would change it is gone. The watcher of the side that is left writes it, so that
// a sleeper wakes and nobody falls asleep after it.
constexpr uint32_t goneMark = UINT32_MAX;

constexpr uint32_t following(uint32_t sequence) {
    return sequence + 1 == goneMark ? 0 : sequence + 1;
}

// How long to spin before going to sleep, which the waits before decide. A wait that ends while it spins keeps the
// whole time; each that does not halves it, down to none. Then it is tried again after some waits asleep that were
// short, after twice as many each time that it was in vain again: on a busy processor the other side cannot even run
// while this one spins. With one processor there is no spinning at all.
class Spinning {
public:
    Spinning();
    [[nodiscard]] uint32_t nanoseconds() const { return budget; }
    // Whether both sides can run at once.
    [[nodiscard]] bool severalProcessors() const { return longest > 0; }
    // Whether the length of the next wait asleep decides about spinning.
    [[nodiscard]] bool curious() const { return longest > 0 && budget == 0 && sleepsLeft <= 1; }

    void paid();
    void wasInVain();
    void slept(uint64_t nanoseconds);

private:
    uint32_t longest;
    uint32_t budget;
    uint32_t sleepsLeft = 0;
    uint32_t sleepsNext = 1;
    bool onTrial = false;
};

// Waits until the word is no longer `old` and returns what it is then. `asleep` is a word of this side's that tells
// the other side to wake it. Returns `old` when nothing came for `limitMilliseconds`.
uint32_t awaitChange(const Word& word, uint32_t old, Word& asleep, Spinning& spinning, int limitMilliseconds);

// Changes the word and wakes the side that sleeps on it.
void publish(Word& word, uint32_t value, const Word& asleep);

// Marks the word: the side that would change it is gone.
void publishGone(Word& word);

} // namespace remote
