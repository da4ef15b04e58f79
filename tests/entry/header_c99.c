#include <corvane/corvane.h>

int header_c99(void);
int header_c99(void) { return sizeof(MediaFrameHeader) == 264 ? 0 : 1; }
