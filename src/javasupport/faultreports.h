// Whether a fatal report of the support layer may end the virtual machine.
#ifndef TMQKCI_JAVASUPPORT_FAULTREPORTS_H
#define TMQKCI_JAVASUPPORT_FAULTREPORTS_H

// Sets noHalt unless Java asked for fault reports. To be repeated: HostInit clears noHalt.
void keepVirtualMachineAlive();

#endif
