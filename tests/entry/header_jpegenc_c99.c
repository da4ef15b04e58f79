/* The header alone, as strict C99. */
#include <corvane/jpegenc.h>

extern void* jpegencHandle;
