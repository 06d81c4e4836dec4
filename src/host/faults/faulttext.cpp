// Runs in a signal handler: no lock, no stdio stream, no allocation.
#include <ucontext.h>

#include "host/faults/faulttext.h"
#include "host/faults/instructionrange.h"
#include "host/signals/signalprint.h"
#include "hostsignal.h"

const char* getSignalName(int sig) {
    switch (sig) {
    case SIGQUIT:
        return "SIGQUIT";
    case SIGILL:
        return "SIGILL";
    case SIGABRT:
        return "SIGABRT";
    case SIGBUS:
        return "SIGBUS";
    case SIGFPE:
        return "SIGFPE";
    case SIGUSR1:
        return "SIGUSR1";
    case SIGSEGV:
        return "SIGSEGV";
    case SIGPIPE:
        return "SIGPIPE";
    case SIGTERM:
        return "SIGTERM";
    case SIGXCPU:
        return "SIGXCPU";
    case SIGXFSZ:
        return "SIGXFSZ";
    default:
        return "unknown";
    }
}

const char* getSignalSourceName(const SignalArrival& arrival) {
    if (!arrival.infoIsValid) {
        return "(unknown: bad siginfo_t)";
    }
    switch (arrival.info->si_code) {
    case SI_USER:
        return "SI_USER, signal from kill(2), sigsend(2), raise(3C) or abort(3C)";
    case SI_QUEUE:
        return "SI_QUEUE, signal from sigqueue(3RT)";
    case SI_TIMER:
        return "SI_TIMER, signal from timer_settime(3RT)";
    case SI_MESGQ:
        return "SI_MESGQ, signal from mq_notify(3RT)";
    case SI_ASYNCIO:
        return "SI_ASYNCIO, signal from async IO ";
    case SI_SIGIO:
        return "SI_SIGIO, signal queued SIGIO";
    case SI_TKILL:
        return "SI_TKILL, signal from tkill(2) or abort(3C)";
    default:
        return "unknown SI_";
    }
}

namespace {
#if defined(__i386__)
void printRegisters(const ucontext_t& context) {
    const auto& registers = context.uc_mcontext.gregs;
    const auto value = [&registers](int index) { return static_cast<unsigned>(registers[index]); };
    HostSignalSafePrint("  Registers saved from frame receiving the signal:\n");
    hostSafePrintf("   gs 0x%x fs 0x%x es 0x%x ds 0x%x \n", value(REG_GS), value(REG_FS), value(REG_ES), value(REG_DS));
    // kept: callers' programs that read these reports look for the label "epb".
    hostSafePrintf("   edi 0x%x esi 0x%x epb 0x%x esp 0x%x \n", value(REG_EDI), value(REG_ESI), value(REG_EBP),
                   value(REG_ESP));
    hostSafePrintf("   ebx 0x%x edx 0x%x ecx 0x%x eax 0x%x \n", value(REG_EBX), value(REG_EDX), value(REG_ECX),
                   value(REG_EAX));
    hostSafePrintf("   trapno 0x%x err 0x%x eip 0x%x cs 0x%x \n", value(REG_TRAPNO), value(REG_ERR), value(REG_EIP),
                   value(REG_CS));
    hostSafePrintf("   efl 0x%x uesp 0x%x ss 0x%x \n", value(REG_EFL), value(REG_UESP), value(REG_SS));
}
#else
void printRegisters(const ucontext_t& context) {
    const auto& registers = context.uc_mcontext.gregs;
    const auto value = [&registers](int index) { return static_cast<unsigned long>(registers[index]); };
    HostSignalSafePrint("  Registers saved from frame receiving the signal:\n");
    hostSafePrintf("   r8 0x%lx r9 0x%lx r10 0x%lx r11 0x%lx \n", value(REG_R8), value(REG_R9), value(REG_R10),
                   value(REG_R11));
    hostSafePrintf("   r12 0x%lx r13 0x%lx r14 0x%lx r15 0x%lx \n", value(REG_R12), value(REG_R13), value(REG_R14),
                   value(REG_R15));
    hostSafePrintf("   rdi 0x%lx rsi 0x%lx rbp 0x%lx rsp 0x%lx \n", value(REG_RDI), value(REG_RSI), value(REG_RBP),
                   value(REG_RSP));
    hostSafePrintf("   rbx 0x%lx rdx 0x%lx rcx 0x%lx rax 0x%lx \n", value(REG_RBX), value(REG_RDX), value(REG_RCX),
                   value(REG_RAX));
    // The kernel keeps the segments in one word.
    hostSafePrintf("   trapno 0x%lx err 0x%lx rip 0x%lx csgsfs 0x%lx \n", value(REG_TRAPNO), value(REG_ERR),
                   value(REG_RIP), value(REG_CSGSFS));
    hostSafePrintf("   efl 0x%lx cr2 0x%lx \n", value(REG_EFL), value(REG_CR2));
}
#endif
} // namespace

void translateFaultCode(const SignalArrival& arrival) {
    hostSafePrintf("HostFaultHandler: signal (int) = %d \n", arrival.sig);
    if (!arrival.infoIsValid) {
        HostSignalSafePrint("    info arg to HostFaultHandler was invalid\n");
        return;
    }
    const siginfo_t& info = *arrival.info;
    const bool isMemoryFault = arrival.sig == SIGSEGV || arrival.sig == SIGBUS;
    hostSafePrintf("    info->si_signo = %d = 0x%x  \n", info.si_signo, static_cast<unsigned>(info.si_signo));
    hostSafePrintf("    info->si_code =  %d = 0x%x  \n", info.si_code, static_cast<unsigned>(info.si_code));
    hostSafePrintf("    info->si_errno = %d = 0x%x  \n", info.si_errno, static_cast<unsigned>(info.si_errno));
    if (isMemoryFault) {
        hostSafePrintf("    info->si_addr = 0x%p  pc = 0x%p \n", info.si_addr, hostInstructionAddress(arrival.context));
    }
    if (arrival.wasSent()) {
        hostSafePrintf("    signal %d , received from process %d userId %d\n   si_code: %d, %s\n", arrival.sig,
                       static_cast<int>(info.si_pid), static_cast<int>(info.si_uid), info.si_code,
                       getSignalSourceName(arrival));
    }
    if (isMemoryFault && arrival.context != nullptr) {
        printRegisters(*static_cast<const ucontext_t*>(arrival.context));
    }
}
