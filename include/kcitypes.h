/*
 * Scalar types and object identifiers shared by every part of the library, and the marks of exported names.
 * Every header here compiles as C17 and as C++20 with equal layouts.
 */
#ifndef TMQKCI_KCITYPES_H
#define TMQKCI_KCITYPES_H

#include <stdint.h>

/*
 * An exported function realigns its stack on i386: old callers keep it aligned to 4 bytes only. One of the leaf kind
 * need not: it calls nothing, or ends with a call of a function that realigns.
 */
#if defined(__i386__)
#define TMQKCI_API __attribute__((visibility("default"), force_align_arg_pointer))
#else
#define TMQKCI_API __attribute__((visibility("default")))
#endif
#define TMQKCI_LEAF_API __attribute__((visibility("default")))

/*
 * Exported data stays where the library keeps it: a program at fixed addresses would hold a copy of its own otherwise,
 * which the library, whose names bind within itself, never looks at. On x86-64 the attribute that says so denies all
 * objects of the program such copies, of the C library's data too, and position-independent programs take those by
 * default; they look up addresses of weak names.
 */
#if defined(__x86_64__) && defined(__PIC__)
#define TMQKCI_DATA __attribute__((visibility("default"), weak))
#elif defined(__has_attribute)
#if __has_attribute(nodirect_extern_access)
#define TMQKCI_DATA __attribute__((visibility("default"), nodirect_extern_access))
#endif
#endif
#ifndef TMQKCI_DATA
#define TMQKCI_DATA __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define TMQKCI_C_BEGIN extern "C" {
#define TMQKCI_C_END }
#else
#define TMQKCI_C_BEGIN
#define TMQKCI_C_END
#endif

/* The identifier of a database object. Bit 1 set marks an identifier that carries its value in itself. */
typedef uint32_t OopType;
/* A truth value; any non-zero value counts as true. */
typedef int32_t BoolType;
typedef uint8_t ByteType;
/* A count of elements or bytes. */
typedef uint32_t ArraySizeType;
/* The number of a session, given out by the client library. */
typedef int32_t KciSessionIdType;
/* The client library's `long`, whatever the compiler's is. */
typedef int32_t KciLong;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* Identifiers that are values. */
#define KCI_OOP_NONE ((OopType)0)
#define KCI_OOP_ILLEGAL ((OopType)1)
#define KCI_OOP_NIL ((OopType)10)
#define KCI_OOP_FALSE ((OopType)6)
#define KCI_OOP_TRUE ((OopType)38)

/* Fixed classes and categories of the server. */
#define KCI_CLASS_STRING ((OopType)1169)
#define KCI_CLASS_STRING_KIND ((OopType)1257)
#define KCI_CLASS_FLOAT ((OopType)1521)
#define KCI_CLASS_DB_STRING ((OopType)1553)
#define KCI_CLASS_DATE_TIME ((OopType)1857)
#define KCI_CATEGORY_SYSTEM ((OopType)3613)

#endif
