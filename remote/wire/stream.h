// Values one after another in a piece of the shared block, each padded to 4 bytes. Nothing is read or written outside
// the piece; a value is copied once, then looked at, because the other side could change it between two looks.
#pragma once

#include "kcitypes.h"

#include <cstddef>
#include <cstring>

namespace remote {

constexpr uint64_t padded(uint64_t size) {
    return (size + 3) & ~uint64_t{3};
}

// The length of what is not there: a text or an array that is NULL.
constexpr uint32_t absent = UINT32_MAX;

class Writer {
public:
    Writer(ByteType* begin, size_t size) : at(begin), end(begin + size) {}

    // The place of `size` bytes, or NULL when they do not fit; nothing fits from then on.
    ByteType* place(uint64_t size) {
        if (padded(size) > static_cast<uint64_t>(end - at)) {
            end = at;
            complete = false;
            return nullptr;
        }
        ByteType* const here = at;
        at += padded(size);
        return here;
    }
    void bytes(const void* from, uint64_t size) {
        if (ByteType* const here = place(size); here != nullptr && size > 0) {
            std::memcpy(here, from, size);
        }
    }
    template <class T>
    void put(const T& value) {
        if (ByteType* const here = place(sizeof value)) {
            std::memcpy(here, &value, sizeof value);
        }
    }
    void text(const char* text) {
        if (text == nullptr) {
            put(absent);
            return;
        }
        const auto length = static_cast<uint32_t>(std::strlen(text));
        put(length);
        bytes(text, uint64_t{length} + 1);
    }
    [[nodiscard]] bool ok() const { return complete; }
    [[nodiscard]] ByteType* position() const { return at; }
    [[nodiscard]] size_t room() const { return static_cast<size_t>(end - at); }

private:
    ByteType* at;
    ByteType* end;
    bool complete = true;
};

class Reader {
public:
    Reader() = default;
    Reader(const ByteType* begin, size_t size) : at(begin), end(begin + size) {}

    // The next `size` bytes, or NULL when so many are not there; nothing is there from then on.
    const ByteType* take(uint64_t size) {
        if (padded(size) > static_cast<uint64_t>(end - at)) {
            end = at;
            valid = false;
            return nullptr;
        }
        const ByteType* const here = at;
        at += padded(size);
        return here;
    }
    template <class T>
    T get() {
        T value{};
        if (const ByteType* const here = take(sizeof value)) {
            std::memcpy(&value, here, sizeof value);
        }
        return value;
    }
    // A text with its terminator, in memory that the other side cannot change; NULL when it was, or is no text.
    const char* text() {
        const auto length = get<uint32_t>();
        if (length == absent) {
            return nullptr;
        }
        const auto* const here = reinterpret_cast<const char*>(take(uint64_t{length} + 1));
        if (here != nullptr && std::memchr(here, '\0', size_t{length} + 1) != here + length) {
            valid = false;
            return nullptr;
        }
        return here;
    }
    [[nodiscard]] bool ok() const { return valid; }
    [[nodiscard]] bool atEnd() const { return at == end; }

private:
    const ByteType* at = nullptr;
    const ByteType* end = nullptr;
    bool valid = true;
};

} // namespace remote
