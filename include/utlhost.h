/*
 * Utilities that stand on the host services: installed files and log names here, the end of the process in utlexit.h,
 * the size of pages in utlpagesize.h, time stamps in hosttime.h.
 */
#ifndef TMQKCI_UTLHOST_H
#define TMQKCI_UTLHOST_H

#include "hosttime.h"
#include "kcitypes.h"
#include "utlexit.h"
#include "utlpagesize.h"

TMQKCI_C_BEGIN

/*
 * Looks for an installed file: the last component of name, with ext (such as ".err") added when it has no extension, in
 * the folder of the running program, then in that folder's ../bin/ and ../sys/. TRUE with the path in dst, of size
 * bytes; FALSE, with dst untouched, when no such file exists or its path does not fit. A folder of that name and a link
 * that does not lead to a regular file are passed over. Thread-safe.
 */
TMQKCI_API BoolType UtlFindExeFile(const char* name, const char* ext, char* dst, unsigned size);

/*
 * Expands a log-name pattern into dst, of size bytes: %N the program's name without folders, %P the process id, %M the
 * machine's name, %U the user, %H the home directory, %D the date as YYYY-MM-DD, %% a percent sign. A NULL program,
 * user or home stands for this process's own. FALSE, with dst empty, for any other %, for a value that is not known and
 * for a result that does not fit. Thread-safe.
 */
TMQKCI_API BoolType UtlExpandLogName(const char* pattern, const char* program, const char* user, const char* home,
                                     char* dst, unsigned size);

TMQKCI_C_END

#endif
