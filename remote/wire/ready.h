// What a host process says once, over the socket, before it serves; afterwards the socket only tells that a side ended.
#pragma once

#include <cstdint>

namespace remote {

// How the two ends understand each other: to be counted up with every change of rows, words or encoding.
constexpr uint32_t wireRelease = 3;
constexpr uint32_t readyMagic = 0x746d716b;

// The descriptors that a host process begins with, beside the standard ones.
constexpr int hostSocket = 3;
constexpr int hostBlock = 4;

struct Ready {
    uint32_t magic;
    uint32_t release;
    uint32_t serves; // 1: the client library is open; 0: text says why not
    char text[500];
};
static_assert(sizeof(Ready) == 512);

} // namespace remote
