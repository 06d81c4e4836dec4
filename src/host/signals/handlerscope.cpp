#include "host/signals/handlerscope.h"

__thread uintptr_t HandlerScope::innermost [[gnu::tls_model("initial-exec")]];
