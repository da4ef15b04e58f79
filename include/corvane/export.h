/* export.h: how the exports of libcorvane are declared. Included by the other headers. Strict C99. */
#ifndef CORVANE_EXPORT_H
#define CORVANE_EXPORT_H

#if defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ != 8
#error "libcorvane is for 64-bit builds: its records carry pointers as 64-bit words"
#endif

#if defined(__GNUC__)
#define CORVANE_API __attribute__((visibility("default")))
#else
#define CORVANE_API
#endif

#endif
