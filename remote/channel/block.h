// The memory that both sides share, and the request and answer that lie in it.
//
// One memfd block: a page of control words, then the body. The near side owns it and makes it larger when a request or
// its answer needs more room; it is sealed against shrinking, so that no side can take pages away from the other. Each
// side knows how much it has mapped and checks every offset and length that it reads against that.
//
// One request is under way at a time. It lies at the body's start; its answer begins where the near side says, behind
// it; behind the answer may follow answers to what will be asked next. The host may hand on an answer before all of
// those are made; until then the body is its, and the next request waits. Numbers in the control words are read once.
#pragma once

#include "channel/waiting.h"
#include "kcitypes.h"

#include <cstddef>

namespace remote {

// Written by one side each; a line of the cache per side and purpose.
struct Control {
    // The near side's request.
    alignas(64) Word request; // its sequence number; a futex
    Word entry;
    Word requestSize;
    Word answerAt;  // offset in the body
    Word bodySize;  // of the body, as far as it is in use
    Word newFrame;  // 1: a session was selected since the request before
    Word usedAhead; // how many of the answers ahead were given
    Word nearAsleep;

    // The host's answer.
    alignas(64) Word answer; // the request's sequence number; a futex
    Word answerEnd;          // offset in the body: where the answers ahead begin
    Word aheadEnd;           // and end, as far as they are made; with moreComing while there are more to make; a futex
    Word hostAsleep;
    Word lacking; // which of the optional entries the client library does not have; written before the first answer

    // Breaks have words of their own.
    alignas(64) Word breakRequest;
    Word breakEntry;
    Word breakerAsleep; // the near side's
    alignas(64) Word breakAnswer;
    Word breakAsleep; // the host's
};

constexpr uint32_t moreComing = 1; // in aheadEnd, which counts by 4

constexpr size_t controlSize = 4096;
static_assert(sizeof(Control) <= controlSize);
static_assert(offsetof(Control, answer) == 64 && offsetof(Control, breakRequest) == 128);

constexpr size_t firstBodySize = 64 * 1024;
constexpr size_t answerAlignment = 16;

// One side's mapping of a block.
class Block {
public:
    Block() = default;
    ~Block() { close(); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    // Makes a block. 0, or errno.
    int create();
    // Maps the block behind a descriptor, which it takes over. 0, or errno; EINVAL for what cannot be such a block.
    int open(int descriptor);
    void close();
    // Keeps what is mapped.
    void closeDescriptor();

    // Makes the body at least `size` bytes long, for the side that owns it. 0, or errno; the block is as it was then.
    int grow(size_t size);
    // Maps as much of the body as the owner says there is. FALSE when there is not so much.
    bool follow(size_t size);

    [[nodiscard]] Control& control() const { return *controlWords; }
    [[nodiscard]] ByteType* body() const { return bytes; }
    [[nodiscard]] size_t bodySize() const { return size; }
    [[nodiscard]] int descriptor() const { return file; }

private:
    int mapAll(size_t wanted);

    int file = -1;
    Control* controlWords = nullptr;
    ByteType* bytes = nullptr;
    size_t size = 0;
};

} // namespace remote
