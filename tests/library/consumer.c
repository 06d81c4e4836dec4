/* A program that shares data with the library: it sets noHalt and reads the table that the library loads. */
#include "hostdebug.h"
#include "kcirtl.h"

#include <stdio.h>

int main(int argc, char** argv) {
    char error[256] = "";
    noHalt = TRUE;
    /* Ends the program unless the library sees noHalt. */
    HostCallDebuggerMsg("announced");
    if (argc < 2 || !KciRtlLoad(FALSE, argv[1], error, sizeof error)) {
        puts(error);
        return 1;
    }
    puts(rtlPrivKciRtlFuncs != NULL ? "table" : "no table");
    return 0;
}
