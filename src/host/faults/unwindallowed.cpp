#include "host/base/forklocks.h"
#include "host/base/guarantee.h"
#include "host/signals/handlerscope.h"
#include "hostunwind.h"

namespace {
constexpr char utlModule[] = "utl";
}

// What a jump would leave behind: signals that stay blocked, a lock that nobody gives back.
void UtlCheckUnwindAllowed() {
    UTL_GUARANTEE(!HandlerScope::isActive());
    UTL_GUARANTEE(!hostForkLockHeldHere());
}
