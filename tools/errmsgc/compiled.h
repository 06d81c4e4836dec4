// Reading a compiled message file back, independently of the library's look-up.
#pragma once

#include <string>
#include <vector>

#include "errmsgc/source.h"

namespace errmsgc {

// Lists the entries of a message file in the order of its text. Reports what keeps it from that on standard error.
bool listFile(const std::string& fileName, std::vector<Entry>& entries);

// Examines a message file: header, table, keys, entries, and that every symbol is found by its hash. Reports every
// fault on standard error.
bool checkFile(const std::string& fileName);

// Looks one symbol up through the library. FALSE, after a line on standard error, when it has no text.
bool getText(const std::string& fileName, const std::string& symbol, std::string& text);

} // namespace errmsgc
