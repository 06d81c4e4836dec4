#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Unwinds to an inner buffer, then to an outer one; returns what the outer one caught. */
int unwindThroughNestedBuffers(int innerKind, int outerKind, int* innerCaught);

/* What a buffer catches when a function unwinds, 0 when it returns. */
int unwindWith(void (*unwind)(void));

#ifdef __cplusplus
}
#endif
