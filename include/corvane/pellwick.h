/*
 * pellwick.h: the contract between libcorvane and the log library Pellwick.so, which is optional. Strict C99.
 *
 * When libcorvane is loaded it loads Pellwick.so by that name, so from the folder of libcorvane, LD_LIBRARY_PATH or the
 * system's folders, calls LogTrace_GetGlobalObject once, and registers itself. Neither library is unloaded. All of this
 * runs inside the host's start or its dlopen: none of it may wait for a thread. Where library, function or object are
 * missing there is no log, and nothing else changes.
 *
 * For each log line libcorvane reads the object anew, in this order:
 *   1. context or testLine is null: nothing more happens;
 *   2. testLine; any result but 0 means that the line is not wanted, and nothing more happens;
 *   3. writeLine, where it is not null, on the same thread.
 * The functions are called from any thread, several at once, until the process ends, with no lock of libcorvane held. They
 * must not raise exceptions.
 */
#ifndef CORVANE_PELLWICK_H
#define CORVANE_PELLWICK_H

#include <stdarg.h>
#include <stdint.h>

#include "corvane/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 128 bytes. It lives as long as the process. Words named reserved are not read. */
typedef struct LogTraceObject {
    uint64_t reserved0[3];
    void* context;    /* first argument of all functions */
    uint64_t reserved32[5];
    /* Called once, also with a null context. `kind` is 19, `moduleName` "Corvane"; *moduleId, which is 0 before, is part of
     * every later testLine. May be null. */
    void (*registerModule)(void* context, uint64_t kind, const char* moduleName, uint32_t* moduleId);
    uint64_t reserved80[4];
    /* `moduleAndLevel` is moduleId << 8 | level; levels are 2 (an input was not understood) and 3 (something failed and was
     * replaced). `zero` is 0. `sourceFile` and `line` say which place of the code logs. 0: the line is wanted. */
    uint32_t (*testLine)(void* context, uint32_t moduleAndLevel, uint64_t zero, const char* sourceFile, uint32_t line);
    /* One line without its end. `format` is as for vprintf; it and what `arguments` has are valid during the call. */
    void (*writeLine)(void* context, const char* format, va_list arguments);
} LogTraceObject;

/* The type of LogTrace_GetGlobalObject, the one function that Pellwick.so exports: sets *object, null for no log. */
typedef void LogTraceGetGlobalObject(uint64_t zero, LogTraceObject** object);

#ifdef __cplusplus
}
#endif

#endif
