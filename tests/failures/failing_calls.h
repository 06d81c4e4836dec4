/* Lets chosen calls that one of our libraries makes fail, told by the caller's address: allocations, or system calls
   and their like (failing_system_calls.c). What others call, the C library and the virtual machine among them, is left
   alone. Linked into a program, or preloaded: then FAILING_CALLS is "which:n:how many" of the program's own (which as
   in enum Failing, by number), or "which:n:how many:part of a library's file name", and the file FAILING_CALLS_NOTE is
   made when one fails. */
#pragma once

#include <stdbool.h>

enum Failing {
    allocations,
    systemCalls,  /* each with an error that it may have */
    interruptions /* those that a signal interrupts, with EINTR */
};

#ifdef __cplusplus
#include <atomic>

struct FailingCalls {
    std::atomic<const char*> library{nullptr}; // a part of its file's name; "" for the program itself; nullptr: none
    std::atomic<unsigned> which{allocations};
    std::atomic<unsigned> failAt{0};   // counted from 1; 0: none
    std::atomic<unsigned> failures{1}; // in a row
    std::atomic<unsigned> count{0};
    std::atomic<int> live{0}; // blocks that the library has taken and not given back
};
extern "C" FailingCalls failingCalls;
extern "C"
#endif
    /* Whether the call that returns there shall fail; errno is set then. */
    bool
    callFails(enum Failing which, const void* caller, int error);
