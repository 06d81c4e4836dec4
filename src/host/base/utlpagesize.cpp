#include "utlpagesize.h"

#include <unistd.h>

unsigned UtlGetPageSize() {
    return static_cast<unsigned>(sysconf(_SC_PAGESIZE));
}
