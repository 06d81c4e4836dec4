// Texts that are put into others, a piece at a time.
#pragma once

#include "language/kernel.h"

namespace local {

// What is still to be done. The text that is filled has its final size already, but for append's.
struct Filling {
    enum class Change : uint8_t { None, Upper, Lower, Quote, Blank };
    static constexpr uint32_t piece = 1u << 18; // characters that are put at once

    Oop to = nil;
    uint32_t at = 0; // characters of both, counted from 0
    Oop from = nil;
    uint32_t next = 0;
    uint32_t end = 0;
    Change change = Change::None;

    // Puts the next piece, in the width of the text that is filled; answers whether it was the last. Fails where the
    // session has aborted since the piece before, as it may while its computation is suspended, and a text is shorter.
    bool step(const View& view);
};

} // namespace local
