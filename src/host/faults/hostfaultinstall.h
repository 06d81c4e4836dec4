#pragma once

#pragma GCC visibility push(hidden)

// Installs HostFaultHandler and records the earlier action. Restart: whether the signal lets system calls go on.
enum class Restart { yes, no };
void hostInstallHandlerFor(int sig, Restart restart);

#pragma GCC visibility pop
