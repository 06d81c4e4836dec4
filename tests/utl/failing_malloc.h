// Counts the library's calls of malloc, and lets a chosen one fail.
#pragma once

#include <cstddef>

struct MallocControl {
    unsigned calls = 0;
    size_t lastSize = 0;
    unsigned failAt = 0; // the call that fails, counted from 1; 0: none
    bool failFromThere = false;
};
extern MallocControl mallocControl;
