#include <errno.h>
#include <stdio.h>

#include "syserror.h"
#include "utlheap.h"

int main(void) {
    SysErrorSType error;
    SysErrorSet(&error, ENOENT, "open(%s)", "nowhere");
    void* block = UtlMalloc(100, "consumer");
    printf("%d %s\n", block != NULL, error.errMsg);
    UtlFree(block);
    return 0;
}
