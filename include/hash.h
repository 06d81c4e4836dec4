/*
 * Hash functions of strings, and an open-addressing hash set of pointers to keys. Called by the message catalogue (the
 * hash functions) and by other components of the product.
 *
 *     HashTableSType words;
 *     HashTableInit(&words, FALSE, 0, (HashFType)HashCStrHash, (HashCompareFType)HashCStrCompare);
 *     VoidPtrType* slot = HashTableLookup(&words, key);
 *     if (!*slot)
 *         HashTableInsert(&words, slot, key);
 *
 * The set grows through a fixed list of prime sizes up to 65537 slots and then no more: at most 65536 keys may be
 * stored. A table is used by one thread at a time; the hash functions are thread-safe. No function here is signal-safe.
 */
#ifndef TMQKCI_HASH_H
#define TMQKCI_HASH_H

#include <stddef.h>

#include "kcitypes.h"

typedef void* VoidPtrType;
typedef uint32_t (*HashFType)(const void* key);
/* TRUE when the keys are equal. */
typedef BoolType (*HashCompareFType)(const void* a, const void* b);

/* The slots are read freely, and changed only through the functions below. */
typedef struct HashTableSType {
    int32_t indexOfPrime;  /* which size of the list */
    BoolType copyKeys;     /* the table owns a copy of each key */
    int32_t keySize;       /* bytes copied per key */
    int32_t tableSize;     /* slots */
    int32_t halfTableSize; /* the number of entries at which the next insertion grows the table */
    int32_t quarterTableSize;
    int32_t numEntries; /* occupied slots */
    HashFType hashFunc;
    HashCompareFType compareFunc;
    VoidPtrType* table;  /* tableSize slots, NULL when empty */
    VoidPtrType* endPtr; /* behind the last slot */
} HashTableSType;

TMQKCI_C_BEGIN

/*
 * Makes an empty table of 37 slots. With copyKeys the table stores copies of keySize bytes, made with UtlMalloc_ and
 * released on removal; otherwise the callers' pointers. keySize is not used then. When there is no memory, table is
 * NULL, and the first insertion tries again.
 */
TMQKCI_API void HashTableInit(HashTableSType* hashTable, BoolType copyKeys, unsigned keySize, HashFType hashFunc,
                              HashCompareFType compareFunc);

/*
 * The slot that holds a key equal to the given one, or else the empty slot where it belongs; NULL when the table has no
 * slots. A full table is searched for ever for a key that it does not hold.
 */
TMQKCI_LEAF_API VoidPtrType* HashTableLookup(HashTableSType* hashTable, const void* key);

/*
 * Stores a key at the empty slot that HashTableLookup gave for it, the table being unchanged since. A table that is
 * half full grows first. FALSE without memory: for larger slots with the table unchanged, for the key's copy with the
 * entry counted all the same (kept: callers depend on the count).
 */
TMQKCI_API BoolType HashTableInsert(HashTableSType* hashTable, VoidPtrType* posn, const void* key);

/*
 * Empties a slot; FALSE when it was empty. The keys behind it are not moved: one that collided with it can no longer be
 * found until the table next grows (kept: callers hold slots of other keys meanwhile).
 */
TMQKCI_API BoolType HashTableRemove(HashTableSType* hashTable, VoidPtrType* posn);

/*
 * Moves a cursor to the next occupied slot, in slot order; from NULL to the first one, behind the last one to NULL.
 * Insertions in between may reorder the slots.
 */
TMQKCI_API void HashTableEnumerate(HashTableSType* hashTable, VoidPtrType** elementPtr);

/*
 * Empties the table and gives it 37 slots again. Each entry beyond numEntries is reported as "corrupt hash table" to
 * HostCallDebuggerMsg.
 */
TMQKCI_API void HashTableClear(HashTableSType* hashTable);

/*
 * The Pearson hash (CACM 33, 6) of count bytes in three variants, as one 24-bit number; 0 for no bytes. Without
 * caseSensitive each byte passes through toupper first.
 */
TMQKCI_LEAF_API int HashStrHash(const ByteType* bytes, unsigned count, BoolType caseSensitive);

/*
 * The same of two-byte characters in the machine's byte order, over both bytes of each; sizeBytes counts bytes. Without
 * caseSensitive the characters below 256 pass through toupper.
 */
TMQKCI_LEAF_API int HashDbStrHash(const ByteType* bytes, size_t sizeBytes, BoolType caseSensitive);

/* Hash and equality of terminated strings, for HashTableInit. */
TMQKCI_LEAF_API int HashCStrHash(const char* str);
TMQKCI_API BoolType HashCStrCompare(const char* a, const char* b);

TMQKCI_C_END

#endif
