/*
 * The message catalogue: turns a symbol and typed arguments into a text, by expanding the pattern that the error
 * message file (errutl.h) holds for the symbol. While the file is missing, unreadable or damaged ("panicked"), and for
 * a symbol that it does not hold, a message shows in brackets what would have been said: [symbol argument ...].
 *
 * A message's arguments are described by a kinds string, one character each, and follow in the same order:
 *   d n  a signed integer of 32 bits        o  an object identifier (OopType)
 *   x    an unsigned one, in hexadecimal    g  a double
 *   s    a terminated string; at most 2048 of its characters are shown
 * At most 10 arguments; NULL for a kinds string means none.
 *
 * All functions are thread-safe; the file, its cache and the panicked flag are guarded by one mutex, which is held
 * neither while a pattern is expanded nor while a callback or the debugger hook runs. It is taken across fork, so that
 * a child can format messages at once. None is signal-safe. None reports failure unless it says so: diagnostics go to
 * standard error, and a failure to read the file also calls HostCallDebugger.
 */
#ifndef TMQKCI_ERRMSG_H
#define TMQKCI_ERRMSG_H

#include "errutl.h"
#include "kcirecords.h"

#include <stdarg.h>

/* Prints one terminated text. */
typedef void ErrMsgPrinterFuncType(const char* text);
/* Prints a rendering of an object through a printer. */
typedef void ErrMsgObjPrinterFuncType(ErrMsgPrinterFuncType* printer, OopType object);

TMQKCI_C_BEGIN

/* Finds and opens the message file; may be called again. Ends in panicked when there is no usable file. */
TMQKCI_API void ErrMsgInit(void);

/*
 * Opens the message file again under the name that ErrMsgInit found, and leaves panicked. The header is not read anew:
 * a file with another table needs ErrMsgInit. FALSE, and panicked, on failure; without an ErrMsgInit before it, without
 * a word. HostFork calls it in the process that starts another and in the started one.
 */
TMQKCI_API BoolType ErrMsgReset(void);

/* Closes the message file and enters panicked. */
TMQKCI_API void ErrMsgShutdown(void);

TMQKCI_API BoolType ErrMsgGetPanicked(void);
TMQKCI_API void ErrMsgSetPanicked(BoolType panicked);

/*
 * The pattern of a symbol, unexpanded but for \n and \\, in a new block of the heap that the caller gives back with
 * UtlFree. NULL when the catalogue does not hold the symbol or there is no memory.
 */
TMQKCI_API char* ErrMsgGetString(const char* sym);

/*
 * Builds a message in buf, of bufSize bytes, always terminated; with bufSize 0 nothing is written. The symbol and the
 * arguments may stand in buf.
 */
TMQKCI_API void ErrMsgBuildString(const char* sym, char* buf, ArraySizeType bufSize, const char* kinds, va_list ap);
TMQKCI_API void ErrMsgSymToText(const char* sym, char* buf, ArraySizeType bufSize, const char* kinds, ...);

/* Builds a message and writes it to a stream, which is flushed; the first form puts the time before it. */
TMQKCI_API void ErrMsgSymToFile(const char* sym, FILE* f, const char* kinds, ...);
TMQKCI_API void ErrMsgSymToFileNoTimeStamp(const char* sym, FILE* f, const char* kinds, ...);

/*
 * Write to a stream, behind the time, what the snprintf format fmt makes of one string or two, at most 1023
 * characters. Neither the catalogue nor a flush is involved.
 */
TMQKCI_API void ErrMsgSymToFile_1(const char* fmt, FILE* f, const char* s1);
TMQKCI_API void ErrMsgSymToFile_2(const char* fmt, FILE* f, const char* s1, const char* s2);

/* The symbol of an error number; "errmsg.invalidErr" and NULL, respectively, for an unknown number. */
TMQKCI_API const char* ErrMsgNumToSym(int errNum);
TMQKCI_API const char* ErrMsgGsErrNumToSym(int errNum);

/*
 * The text of an error, without arguments, in dst, of dstSize bytes. For a category other than the system's own it is
 * the text "errmsg.userErrTxt" itself, and the rest of dst is zeros.
 */
TMQKCI_API void ErrMsgToTxt(OopType category, int number, char* dst, ArraySizeType dstSize);

/*
 * Prints a report of an error of the client library through msgRoutine, piece by piece; objPrinter prints each
 * argument. errorNum of errsInProgress numbers the report when there are several; displayOops adds the identifiers of
 * category and context. Neither callback may be NULL.
 */
TMQKCI_API void ErrMsgWriteError(ErrMsgPrinterFuncType* msgRoutine, ErrMsgObjPrinterFuncType* objPrinter,
                                 const KciErrSType* theError, int errorNum, BoolType displayOops, int errsInProgress);

TMQKCI_C_END

#endif
