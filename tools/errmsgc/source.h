// Reading a text catalogue, and building the image of a message file from its entries.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "errutl.h"

namespace errmsgc {

// An entry of a catalogue.
struct Entry {
    std::string symbol;
    std::vector<int> argOrder;
    std::string pattern;
    long line; // of the catalogue, where the entry ends

    // The entry as it stands in a catalogue, without the last newline.
    std::string text() const;
};

using Transform = std::array<ByteType, 4>;

// Reads all entries of a catalogue with the library's parser. Reports what is wrong on standard error, each malformed
// or repeated entry by file name and line; FALSE then.
bool readCatalogue(const std::string& fileName, std::vector<Entry>& entries);

// Builds the image of a message file whose numbers stand in the given byte order.
std::string buildImage(const std::vector<Entry>& entries, const Transform& transform);

// Puts contents in the place of a file: written beside it under another name first, so that a reader sees either the
// old file or the new one. Reports a failure on standard error.
bool replaceFile(const std::string& fileName, const std::string& contents);

} // namespace errmsgc
