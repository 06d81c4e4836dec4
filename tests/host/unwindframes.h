#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* What a buffer catches when a function many calls below unwinds; 0 when that returns. */
int unwindWith(void (*unwind)(void));

#ifdef __cplusplus
}
#endif
