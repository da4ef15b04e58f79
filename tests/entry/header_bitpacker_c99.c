/* The header alone, as strict C99. */
#include <corvane/bitpacker.h>

extern void* bitpackerHandle;
