// Lets a chosen allocation of one of our libraries fail, told by the caller's address; what others allocate, the C
// library and the virtual machine among them, is left alone. Linked into a program, or preloaded: then
// FAILING_ALLOCATION is "n:how many" of the program's own, or "n:how many:part of a library's file name", and the file
// FAILING_ALLOCATION_NOTE is made when one fails.
#pragma once

#include <atomic>

struct Allocations {
    std::atomic<const char*> library{nullptr}; // a part of its file's name; "" for the program itself; nullptr: none
    std::atomic<unsigned> failAt{0};           // counted from 1; 0: none
    std::atomic<unsigned> failures{1};         // in a row
    std::atomic<unsigned> count{0};
    std::atomic<int> live{0}; // blocks that the library has taken and not given back
};
extern "C" Allocations allocations;
