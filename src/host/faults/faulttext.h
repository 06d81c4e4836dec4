// What the fault handler says about a signal. Runs in a signal handler.
#pragma once

#include "host/faults/signalarrival.h"

#pragma GCC visibility push(hidden)

const char* getSignalName(int sig);
const char* getSignalSourceName(const SignalArrival& arrival);

// What the signal and the interrupted frame carry, line by line.
void translateFaultCode(const SignalArrival& arrival);

#pragma GCC visibility pop
