#pragma once

// Installs HostFaultHandler and records the earlier action. Restart: whether the signal lets system calls go on.
enum class Restart { yes, no };
void hostInstallHandlerFor(int sig, Restart restart);
