// Message files for tests: in a folder of their own, opened as the process's catalogue.
#pragma once

#include <cstdint>
#include <string>

#include "errmsg.h"
#include "errmsgc/source.h"
#include "support/scratch.h"

inline constexpr errmsgc::Transform littleEndian{0, 1, 2, 3};
inline constexpr errmsgc::Transform bigEndian{3, 2, 1, 0};
inline constexpr errmsgc::Transform mixedEndian{2, 3, 0, 1};
inline constexpr errmsgc::Transform cyclic{1, 2, 3, 0}; // unlike the others, not its own inverse

// Compiles the text of a catalogue, which must be good.
std::string compileText(const std::string& text, const errmsgc::Transform& transform = littleEndian);

// Opens a message file, given as its bytes, as the process's catalogue.
class OpenCatalogue {
public:
    explicit OpenCatalogue(const std::string& image);
    ~OpenCatalogue() { ErrMsgShutdown(); }

    const Scratch folder;
    const std::string name;
};

// The little-endian number at a position of an image, to be looked at and changed.
uint32_t wordAt(const std::string& image, size_t position);
void setWord(std::string& image, size_t position, uint32_t value);

// For a child: from here on a fatal error is only counted, by a hook that takes the catalogue's mutex.
inline int hookCalls;
void countHookCalls();

// ErrMsgSymToText with a buffer of the usual size.
template <class... Args>
std::string message(const char* sym, const char* kinds, Args... args) {
    ErrMsgStrType text;
    ErrMsgSymToText(sym, text, sizeof text, kinds, args...);
    return text;
}
