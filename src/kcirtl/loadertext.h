// Texts in buffers of fixed size: names, paths and messages of the loader.
#pragma once

#include <span>
#include <string_view>

// A text that grows in a buffer and is always terminated in it; in none, it stays nowhere.
class LoaderText {
public:
    explicit LoaderText(std::span<char> room) : LoaderText(room, 0) {}
    // Goes on behind what the buffer holds.
    LoaderText(std::span<char> room, size_t length) : buffer(room), used(length) { terminate(); }

    // The piece as a whole, or nothing of it and false.
    bool append(std::string_view piece) {
        if (piece.size() >= buffer.size() - used) {
            return false;
        }
        used += piece.copy(buffer.data() + used, piece.size());
        terminate();
        return true;
    }
    // As much of the piece as fits.
    void appendCut(std::string_view piece) {
        if (!buffer.empty()) {
            append(piece.substr(0, buffer.size() - 1 - used));
        }
    }
    bool appendSeparator() { return used == 0 || buffer[used - 1] == '/' || buffer[used - 1] == '\\' || append("/"); }

    [[nodiscard]] bool empty() const { return used == 0; }
    [[nodiscard]] const char* c_str() const { return buffer.data(); }
    [[nodiscard]] std::string_view view() const { return {buffer.data(), used}; }

private:
    void terminate() const {
        if (!buffer.empty()) {
            buffer[used] = '\0';
        }
    }

    std::span<char> buffer;
    size_t used;
};

// The caller's message buffer; a caller that passed none gets no message.
using ErrorBuffer = std::span<char>;
