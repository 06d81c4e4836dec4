// Whether a fatal report of the support layer may end the virtual machine.
#pragma once

// Sets noHalt unless Java asked for fault reports. To be repeated: HostInit clears noHalt.
void keepVirtualMachineAlive();
