/* The header alone, as strict C99. */
#include <corvane/corvane.h>

extern MediaFrameHeader headerAlone;
