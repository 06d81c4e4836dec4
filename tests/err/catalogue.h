// Message files for tests: in a folder of their own, opened as the process's catalogue.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "errmsg.h"
#include "errmsgc/source.h"
#include "hostdebug.h"
#include "support/scratch.h"

inline constexpr errmsgc::Transform littleEndian{0, 1, 2, 3};
inline constexpr errmsgc::Transform bigEndian{3, 2, 1, 0};
inline constexpr errmsgc::Transform mixedEndian{2, 3, 0, 1};
inline constexpr errmsgc::Transform cyclic{1, 2, 3, 0}; // unlike the others, not its own inverse

// Compiles the text of a catalogue, which must be good.
inline std::string compileText(const std::string& text, const errmsgc::Transform& transform = littleEndian) {
    const Scratch folder;
    std::vector<errmsgc::Entry> entries;
    EXPECT_TRUE(errmsgc::readCatalogue(folder.write("catalogue.msg", text), entries));
    return errmsgc::buildImage(entries, transform);
}

// Opens a message file, given as its bytes, as the process's catalogue.
struct OpenCatalogue {
    explicit OpenCatalogue(const std::string& image) : name(folder.write("messages.err", image)) {
        setenv("KESTRUNE_LANG", name.c_str(), 1);
        ErrMsgInit();
    }
    ~OpenCatalogue() { ErrMsgShutdown(); }

    const Scratch folder;
    const std::string name;
};

// The little-endian number at a position of an image, to be looked at and changed.
inline uint32_t wordAt(const std::string& image, size_t position) {
    uint32_t value = 0;
    memcpy(&value, image.data() + position, sizeof value);
    return value;
}
inline void setWord(std::string& image, size_t position, uint32_t value) {
    memcpy(image.data() + position, &value, sizeof value);
}

// ErrMsgSymToText with a buffer of the usual size.
template <class... Args>
std::string message(const char* sym, const char* kinds, Args... args) {
    ErrMsgStrType text;
    ErrMsgSymToText(sym, text, sizeof text, kinds, args...);
    return text;
}

// For a child: from here on a fatal error is only counted, by a hook that takes the catalogue's mutex.
inline int hookCalls;
inline void countHookCalls() {
    noHalt = FALSE;
    coreDumpEnabled = 0;
    HostOnDebug([] {
        ++hookCalls;
        ErrMsgGetPanicked();
        message("from.the.hook", "");
    });
}
