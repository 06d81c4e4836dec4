/*
 * The error message file: finding it, validating its header, parsing its entries. Called by the message catalogue
 * (errmsg.h) and by the program that compiles message files.
 *
 * The file is a header, a hash table, and the text of the entries; docs/messages.md gives its
 * layout. Once opened it is held in memory as a whole: a file that is replaced or cut short meanwhile does no harm, and
 * no message costs a system call.
 *
 * The functions take no lock and may run in one thread at a time; the catalogue calls them under its mutex. None is
 * signal-safe.
 */
#ifndef TMQKCI_ERRUTL_H
#define TMQKCI_ERRUTL_H

#include "kcitypes.h"

#include <assert.h>
#include <stdio.h>

#define ERRMSG_STR_SIZE 2049 /* 2048 characters and a terminator */
#define ERRMSG_MAX_ARGS 10
#define ERRUTL_MAX_SYMBOL 254 /* the longest symbol, in characters */
#define ERRUTL_MAX_LINE 2047  /* the longest entry, joined to one line */
#define ERRUTL_FILE_NAME_SIZE 4096
#define ERRUTL_VERSION 1
#define ERRUTL_HEADER_SIZE 20 /* of a message file; the hash table follows */
#define ERRUTL_SLOT_SIZE 12   /* of the hash table */

/* The unit of every message buffer. */
typedef char ErrMsgStrType[ERRMSG_STR_SIZE];

/* The header of a message file, decoded; on file the same fields in the same order. */
typedef struct ErrUtlHdrSType {
    ByteType magic[4];
    ByteType transform[4]; /* the power of 256 that each byte of a number stands for, in the order of the file */
    int32_t vers;
    uint32_t tabSize;   /* slots in the hash table, not 0 */
    uint32_t textBegin; /* file position of the entries */
} ErrUtlHdrSType;

static_assert(sizeof(ErrUtlHdrSType) == ERRUTL_HEADER_SIZE, "ErrUtlHdrSType layout");

/* A slot of the file's hash table, decoded; on file three numbers of 32 bits. */
typedef struct ErrUtlHashSType {
    long hash;   /* HashStrHash of the symbol, case-sensitive */
    long keyLoc; /* file position of the symbol's text, 0 when the hash alone identifies it */
    long valLoc; /* file position of the entry's line, 0 in an empty slot */
} ErrUtlHashSType;

/* One parsed entry. */
typedef struct ErrUtlEntrySType {
    int expectedArgCount;          /* the highest numeral of the argument list */
    int argListSize;               /* how many numerals it holds */
    long loc;                      /* file position of the entry's first line */
    int argOrder[ERRMSG_MAX_ARGS]; /* the numerals in the order in which the pattern consumes them, then zeros */
    ErrMsgStrType sym;
    ErrMsgStrType buf; /* the pattern, escapes not yet interpreted */
} ErrUtlEntrySType;

#if defined(__i386__)
static_assert(sizeof(ErrUtlHashSType) == ERRUTL_SLOT_SIZE, "ErrUtlHashSType layout");
static_assert(sizeof(ErrUtlEntrySType) == 4152, "ErrUtlEntrySType layout");
#endif

TMQKCI_C_BEGIN

/* The header last read, the open stream (NULL while closed), and the file's expanded name. */
extern TMQKCI_DATA ErrUtlHdrSType ErrUtlFileHdr;
extern TMQKCI_DATA FILE* ErrUtlErrFile;
extern TMQKCI_DATA char ErrUtlErrFileName[ERRUTL_FILE_NAME_SIZE];

/*
 * Finds the message file and opens it with ErrUtlReset. The name is fileName as it stands; or, when that is NULL, the
 * value of KESTRUNE_LANG or else $KESTRUNE/sys/english67.err, replaced by a file of that name beside the program, in
 * ../bin/ or in ../sys/ from there if one exists. TRUE when the file is open; FALSE after a line on standard error.
 */
TMQKCI_API BoolType ErrUtlInit(BoolType isCompiled, const char* fileName);

/*
 * Closes the file and opens ErrUtlErrFileName again, close-on-exec. With isCompiled, reads and validates the header
 * into ErrUtlFileHdr. FALSE after lines on standard error; the stream stays open when only the header was bad.
 */
TMQKCI_API BoolType ErrUtlReset(BoolType isCompiled);

/* Reads and validates a header from the beginning of f. FALSE after a line on standard error. */
TMQKCI_API BoolType ErrUtlReadHdr(FILE* f, ErrUtlHdrSType* hdr);

/*
 * Parses the next entry from the stream's position. TRUE with an entry, FALSE at the end of the file. *syntaxErr tells
 * whether a line was malformed; such a line is reported on standard error with fname and the line count, and skipped.
 *
 * With buildingTable, empty lines and comments are skipped, *lineNum counts the physical lines read, and the entry's
 * position is kept in its `loc`. Without, they are malformed too, because a slot points straight at its entry, and
 * every malformed line and the end of the file call the debugger hook. lineNum may be NULL (line 0) without
 * buildingTable.
 */
TMQKCI_API BoolType ErrUtlNextSym(FILE* f, const char* fname, long* lineNum, ErrUtlEntrySType* theEntry,
                                  BoolType buildingTable, BoolType* syntaxErr);

/* The four bytes with which every message file begins. */
TMQKCI_API const ByteType* ErrUtlGetMagic(void);

/* Whether the last ErrUtlInit succeeded. */
TMQKCI_API BoolType ErrUtlIsUp(void);

/* Closes the file, if it is open, and gives its memory back. */
TMQKCI_API void ErrUtlShutdown(void);

TMQKCI_C_END

#endif
