// The message file's contents in memory. Every position that the file itself names is compared with the size before it
// is used; outside, it counts as a read that failed.
#pragma once

#include <cstdint>
#include <string_view>

#include "err/messages/errentry.h"
#include "errutl.h"

#pragma GCC visibility push(hidden)

// The bytes of the open file, empty while it is closed or cannot be held. Valid until the next reset or shutdown.
std::string_view errUtlImage();

// Changes whenever the image does: what was kept of an image with another number is gone.
unsigned errUtlImageNumber();

// The number that four bytes of a file stand for under the header's byte order.
constexpr uint32_t decodeWord(const ByteType bytes[4], const ByteType transform[4]) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        value |= static_cast<uint32_t>(bytes[i]) << 8 * (transform[i] & 3);
    }
    return value;
}

#pragma GCC visibility pop
