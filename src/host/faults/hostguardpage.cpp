// The check and the opening of guard pages run in a signal handler: no lock, no stdio stream, no allocation there.
// Protecting a page is for ordinary code.
#include "hostfault.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <sys/mman.h>

#include "host/base/guarantee.h"
#include "host/faults/hostguardpage.h"
#include "syserror.h"
#include "utlhost.h"

namespace {
constexpr char utlModule[] = "hostunix";
constexpr int maxProtectedPages = 16;

struct protectedSType {
    std::atomic<char*> pageAddr; // NULL: a free slot
    std::atomic<HostProtectHandlerFType> protectHandler;
};
std::array<protectedSType, maxProtectedPages> protectedPages;

// The latest pages that were opened: number n stands at n % latestOpened.size(). Another thread may have touched a page
// before it was opened, and its fault arrive after that.
std::array<std::atomic<char*>, maxProtectedPages> latestOpened;
std::atomic<unsigned> openedCount;

// The number of the opening for which this thread has made an access again. This model of thread-local data needs no
// allocation on first use.
__thread unsigned retriedOpening [[gnu::tls_model("initial-exec")]];

protectedSType* findSlot(const char* pageAddr) {
    for (protectedSType& slot : protectedPages) {
        if (slot.pageAddr == pageAddr) {
            return &slot;
        }
    }
    return nullptr;
}

bool openPage(char* pageAddr) {
    return mprotect(pageAddr, UtlGetPageSize(), PROT_READ | PROT_WRITE) == 0;
}

bool protectWholePages(char* addr, size_t len, int protection) {
    const size_t pageSize = UtlGetPageSize();
    UTL_GUARANTEE(reinterpret_cast<uintptr_t>(addr) % pageSize == 0);
    UTL_GUARANTEE(len % pageSize == 0);
    return mprotect(addr, len, protection) == 0;
}
} // namespace

BoolType HostProtectPage(char* pageAddr, HostProtectHandlerFType protectHandler, SysErrorSType* err) {
    const long pageSize = static_cast<long>(UtlGetPageSize());
    if (reinterpret_cast<uintptr_t>(pageAddr) % static_cast<uintptr_t>(pageSize) != 0) {
        SysErrorSet(err, -1, "Page pointer %p was not aligned on page boundary %ld.", static_cast<void*>(pageAddr),
                    pageSize);
        return FALSE;
    }
    protectedSType* slot = findSlot(pageAddr);
    if (slot == nullptr) {
        slot = findSlot(nullptr);
    }
    if (slot == nullptr) {
        SysErrorSet(err, -1, "System only supports protecting %d pages.", maxProtectedPages);
        return FALSE;
    }
    // The slot is filled first: another thread may touch the page as soon as it is protected.
    const HostProtectHandlerFType earlierHandler = slot->protectHandler;
    char* const earlierAddr = slot->pageAddr;
    slot->protectHandler = protectHandler;
    slot->pageAddr = pageAddr;
    if (mprotect(pageAddr, static_cast<size_t>(pageSize), PROT_NONE) == 0) {
        return TRUE;
    }
    const int error = errno;
    slot->pageAddr = earlierAddr;
    slot->protectHandler = earlierHandler;
    SysErrorSet(err, error, "mprotect(%p,%ld,PROT_NONE)", static_cast<void*>(pageAddr), pageSize);
    return FALSE;
}

BoolType HostUnProtectPage(char* pageAddr) {
    protectedSType* slot = pageAddr != nullptr ? findSlot(pageAddr) : nullptr;
    if (slot == nullptr || !openPage(pageAddr)) {
        return FALSE;
    }
    const unsigned number = ++openedCount;
    latestOpened[number % latestOpened.size()] = pageAddr;
    slot->pageAddr = nullptr;
    return TRUE;
}

bool hostWasOpenedMeanwhile(const char* faultAddr) {
    const unsigned latest = openedCount;
    for (unsigned number = latest; number != 0 && latest - number < latestOpened.size(); --number) {
        const char* const page = latestOpened[number % latestOpened.size()];
        if (page != nullptr && faultAddr >= page && faultAddr < page + UtlGetPageSize()) {
            // Once for each opening: who then still meets a fault there has one of its own.
            const bool isFirst = retriedOpening != number;
            retriedOpening = number;
            return isFirst;
        }
    }
    return false;
}

bool hostProtectCheck(char* faultAddr) {
    bool opened = false;
    for (protectedSType& slot : protectedPages) {
        char* const page = slot.pageAddr;
        if (page == nullptr || (faultAddr != nullptr && (faultAddr < page || faultAddr >= page + UtlGetPageSize()))) {
            continue;
        }
        const HostProtectHandlerFType handler = slot.protectHandler;
        if (handler == nullptr || !handler(page, faultAddr)) {
            continue;
        }
        opened = HostUnProtectPage(page) != 0;
        if (faultAddr != nullptr) {
            break;
        }
    }
    return opened;
}

BoolType HostBasicProtectPageReadOnly(char* addr, size_t len) {
    return static_cast<BoolType>(protectWholePages(addr, len, PROT_READ));
}

BoolType HostBasicUnprotectPage(char* addr, size_t len) {
    return static_cast<BoolType>(protectWholePages(addr, len, PROT_READ | PROT_WRITE));
}
