// Whether a fatal report of the support layer may end the virtual machine.
#pragma once

#pragma GCC visibility push(hidden)

// Sets noHalt unless Java asked for fault reports. To be repeated: HostInit clears noHalt.
void keepVirtualMachineAlive();

#pragma GCC visibility pop
