/*
 * Records that cross the boundary to the client library. Their layouts are the client's; all integers are in the
 * machine's byte order.
 */
#ifndef TMQKCI_KCIRECORDS_H
#define TMQKCI_KCIRECORDS_H

#include "kcitypes.h"

#include <assert.h>
#include <stddef.h>

#define KCI_ERR_MESSAGE_SIZE 401 /* 400 characters and a terminator */
#define KCI_ERR_MAX_ARGS 10

/* An error as the client library reports it through KciErr. */
typedef struct KciErrSType {
    OopType category; /* KCI_CATEGORY_SYSTEM for the system's own error numbers */
    int32_t number;
    OopType context; /* a suspended process, or nil */
    char message[KCI_ERR_MESSAGE_SIZE];
    OopType args[KCI_ERR_MAX_ARGS];
    int32_t argCount;
    BoolType fatal;
} KciErrSType;

static_assert(offsetof(KciErrSType, message) == 12, "KciErrSType layout");
static_assert(offsetof(KciErrSType, args) == 416, "KciErrSType layout");
static_assert(offsetof(KciErrSType, argCount) == 456, "KciErrSType layout");
static_assert(sizeof(KciErrSType) == 464, "KciErrSType layout");

/* How an object holds its body. */
typedef enum KciObjImplEType {
    KCI_IMPL_POINTER = 0,
    KCI_IMPL_BYTE = 1,
    KCI_IMPL_NSC = 2, /* unordered collection */
    KCI_IMPL_SPECIAL = 3
} KciObjImplEType;

/* An object's description, without its body. */
typedef struct KciObjInfoSType {
    int32_t namedSize;
    OopType objId;
    OopType objClass;
    OopType segment;
    int32_t objSize; /* named variables and indexed elements together */
    uint32_t reservedFlags : 9;
    uint32_t isOverlayed : 1;
    uint32_t isPartial : 1;
    uint32_t isIndexable : 1;
    uint32_t isInvariant : 1;
    uint32_t objImpl : 3; /* a KciObjImplEType */
    uint32_t unused : 16;
} KciObjInfoSType;

static_assert(sizeof(KciObjInfoSType) == 24, "KciObjInfoSType layout");

typedef struct KciDateTimeSType {
    int32_t year;
    int32_t dayOfYear;
    int32_t milliseconds;
    OopType timeZone;
} KciDateTimeSType;

static_assert(sizeof(KciDateTimeSType) == 16, "KciDateTimeSType layout");

/* What a poll for the end of a non-blocking call answers. A client library may answer any other number. */
#ifdef __cplusplus
typedef enum KciNbProgressEType : int {
#else
typedef enum KciNbProgressEType {
#endif
    KCI_RESULT_NOT_READY = 0,
    KCI_RESULT_PROGRESSED = 1,
    KCI_RESULT_READY = 2
} KciNbProgressEType;

#endif
