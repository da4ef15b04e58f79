/*
 * bitpacker.h: the bit packer of libcorvane, a bit-stream writer for encoders.
 *
 * An encoder pushes bit fields, whole bytes and byte strings; the packer puts them together, most significant bit
 * first, in a linear buffer or in a circular pool that a second thread drains, and applies the escape rule of the target
 * format to every byte that bit fields complete. The six combinations, chosen once by PBInitial.Mode:
 *
 *   mode  buffer   escape rule for bit fields                          PB_SpliceStuffing
 *   1     linear   00 after every FF                                   pads with one bits
 *   2     pool     as 1                                                as 1
 *   3     linear   none                                                a zero bit, then one bits
 *   4     pool     none                                                as 3
 *   5     linear   03 in front of a byte below 4 after two zero bytes  refused
 *   6     pool     as 5                                                refused
 *
 * A linear object needs PB_SetNewBuf before its first byte. The whole loop:
 *
 *   PBInitial initial = {0};
 *   void* packer = NULL;
 *   initial.Version = PB_VERSION;
 *   initial.Mode = 1;
 *   PB_Initial(&packer, &initial);
 *   PB_SetNewBuf(packer, buffer, size);
 *   PB_SpliceBits(packer, 3, 5);
 *   PB_SpliceStuffing(packer);
 *   bytes = PB_GetEncBytes(packer);
 *   PB_UpdateByteCount(packer);
 *   PB_Release(&packer);
 *
 * UNITS OF OUTPUT. Bytes written since the last PB_UpdateByteCount (the commit) are the current unit, PB_GetEncBytes of
 * them; the room left is the free bytes less these. Committed bytes of a pool wait for the reader; a linear buffer is used
 * up from front to back until PB_SetNewBuf or PB_FlushPool starts it again.
 *
 * RESULTS. 0 is success and PB_FAILED failure, unless the text says that a value is returned. A null object, a null
 * record or a null address is PB_FAILED (all ones also where 64 bits are returned), never a crash; releasing null is no
 * failure. Any other pointer that PB_Initial did not give is undefined. No call throws, aborts or prints.
 *
 * NO ROOM. A linear write that does not fit fails and writes nothing. In a pool the writer calls FullCallback(FullContext)
 * on its own thread, which may wait until the reader has taken bytes, and tries again; the write fails when a result is not
 * 0, after RetryLimit calls (there is no try after the last one), and at once while the object is stopped or RetryLimit is
 * 0. A bit field that fails for room has moved the partial byte (PB_GetSymbol, PB_GetBitPosition) nevertheless: go back to
 * a bookmark, or discard the unit.
 *
 * THREADS. An object has one writer, and in pool modes one reader beside it; a linear object has only its writer. Objects
 * share nothing. Thread words used below:
 *   [writer]  the writing thread; where no reader runs, any one thread at a time.
 *   [reader]  the reading thread, also while the writer writes.
 *   [any]     any thread at any time between PB_Initial and PB_Release.
 * The count of free bytes is changed by both sides, atomically and with LockCallback and UnlockCallback around each change
 * (and around changes of the reader's position), for clients that protect data of their own with the same lock; the packer
 * itself needs no callbacks. Callbacks run on the thread of the call, with no other lock held, and may call [reader] and
 * [any] exports.
 *
 * LIMITS. A pool or a buffer has at most 2^31 bytes (linear: 2^32 - 1). PB_GetBytes does not compare its count with what
 * lies in the pool, so ask PB_GetFullness first: taking more than that hands out stale bytes and lets the writer
 * overwrite bytes that were not read yet. No byte outside the buffer is touched even then.
 *
 * Strict C99, C++ through extern "C". The record is little-endian with the natural alignment of a 64-bit build.
 */
#ifndef CORVANE_BITPACKER_H
#define CORVANE_BITPACKER_H

#include <stdint.h>

#include "corvane/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Value for PBInitial.Version: number 5 in the low byte, revision 3 in the next. Lower revisions are accepted. */
#define PB_VERSION 0x0305u
/* The result of a call that failed. */
#define PB_FAILED ((uint32_t)0xFFFFFFFFu)

/* A result other than 0 makes the write fail. */
typedef uint32_t (*PBFullCallback)(uint32_t context);
typedef void (*PBLockCallback)(uint32_t context);

/* What PB_Initial and PB_QueryMemSize read; 56 bytes. Nothing of it is kept but the numbers, the callbacks and Memory. */
typedef struct PBInitial {
    uint32_t Version;              /* 0: PB_VERSION; number 5, revision 0 to 3 */
    uint32_t PoolSize;             /* 4: modes 2, 4, 6: bytes of the pool in the object; a power of two, or 0 */
    uint32_t RetryLimit;           /* 8: how often a full pool calls FullCallback; 0 makes every pool write fail */
    uint32_t LockContext;          /* 12: argument of LockCallback and UnlockCallback */
    uint32_t FullContext;          /* 16: argument of FullCallback */
    uint32_t Mode;                 /* 20: 1 to 6 */
    PBFullCallback FullCallback;   /* 24: null: as one that returns 0 at once */
    PBLockCallback LockCallback;   /* 32: may be null */
    PBLockCallback UnlockCallback; /* 40: may be null */
    void* Memory; /* 48: PB_QueryMemSize bytes of any alignment that outlive the object, or null to allocate */
} PBInitial;

/* ---- Life ---------------------------------------------------------------------------------------------------------- */

/* Returns the bytes that `Memory` needs: 195, and PoolSize more in modes 2, 4 and 6. PB_FAILED for a null record and for
 * a sum beyond 32 bits. [any] */
CORVANE_API uint32_t PB_QueryMemSize(const PBInitial* initial);

/* Makes an object in `Memory` (which is zeroed) or in memory of its own, and writes it to `*object`. A pool is ready to
 * write. PB_FAILED, with null in `*object` and `Memory` as it was: wrong Version, PoolSize with more than one bit, Mode out
 * of range, no memory. [any] */
CORVANE_API uint32_t PB_Initial(void** object, const PBInitial* initial);

/* Ends the object: frees memory of its own, forgets memory of the client, and puts null into `*object`. A null `object`
 * or `*object` is no failure. No thread may be inside a call with it. [writer] */
CORVANE_API uint32_t PB_Release(void** object);

/* Makes `buffer` of `size` bytes the output and starts at its front; the bookmark, a partial byte and bytes that were not
 * read are gone. The client owns the buffer and keeps it as long as it is the output. PB_FAILED, with only the bookmark
 * gone: a null `buffer` with a size, and in pool modes a size that is not a power of two, 0 included. Not beside the
 * reader. [writer] */
CORVANE_API uint32_t PB_SetNewBuf(void* object, void* buffer, uint32_t size);

/* Forgets all bytes of buffer or pool, the partial byte and the bookmark, and ends a stop. Not beside the reader.
 * [writer] */
CORVANE_API uint32_t PB_FlushPool(void* object);

/* Makes every pool write fail from now on, also one that waits: it ends after its running FullCallback. Linear writes
 * are not touched. [any] */
CORVANE_API uint32_t PB_Stop(void* object);

/* Ends a stop: RetryLimit of PB_Initial holds again. [any] */
CORVANE_API uint32_t PB_Continue(void* object);

/* ---- Writing ------------------------------------------------------------------------------------------------------- */

/* Appends the low `bits` bits of `value`, 0 to 24, highest first. Completed bytes leave under the escape rule. PB_FAILED:
 * no room, or `bits` above 24 (nothing happens then). Room is asked for 2 bytes a completed byte in modes 1 and 2, and
 * for exactly what will be written in the others. [writer] */
CORVANE_API uint32_t PB_SpliceBits(void* object, uint32_t bits, uint32_t value);

/* Appends the low `count` bytes of `value`, 0 to 4, highest first, with no escape rule. PB_FAILED: no room, a partial
 * byte stands, or `count` above 4. [writer] */
CORVANE_API uint32_t PB_SpliceBytes(void* object, uint32_t count, uint32_t value);

/* Appends `count` bytes with no escape rule. PB_FAILED: no room, a partial byte stands, null `source` with a count.
 * [writer] */
CORVANE_API uint32_t PB_PutBytes(void* object, const void* source, uint32_t count);

/* Completes a partial byte with zero bits; modes 5 and 6 apply their escape rule and ask for room for 2 bytes. Nothing
 * at a byte boundary. PB_FAILED: no room. [writer] */
CORVANE_API uint32_t PB_SpliceAlign(void* object);

/* Completes a partial byte with one bits, under the escape rule. Nothing at a byte boundary. PB_FAILED: no room.
 * [writer] */
CORVANE_API uint32_t PB_SpliceAlignOneBits(void* object);

/* Ends a stream as its format wants. Modes 1 and 2: one bits up to a byte boundary, an FF that comes of it followed by
 * 00; nothing at a boundary. Modes 3 and 4: a zero bit, then one bits up to a boundary, so at a boundary one byte 7F.
 * PB_FAILED: no room, modes 5 and 6, mode 2 while stopped. [writer] */
CORVANE_API uint32_t PB_SpliceStuffing(void* object);

/* Takes back the k = PB_GetCurrAddr mod 8 bytes after the last place divisible by 8 and returns them, the first in the
 * top byte; 0 when k is 0. For encoders that continue in words of their own. The unit's byte count falls by k modulo 2^32:
 * below 0 where the bytes were committed already. [writer] */
CORVANE_API uint64_t PB_GetUnAlignBytes(void* object);

/* Counts `count` bytes in that the client wrote into the buffer itself, at PB_GetCurrAddr (in a pool from there on,
 * around its end). PB_FAILED: there is no room for so many. [writer] */
CORVANE_API uint32_t PB_UpdateBytePosition(void* object, uint32_t count);

/* Commits the unit: its bytes count as filled, the reader may take them, and the bookmark is gone. A partial byte stays.
 * [writer] */
CORVANE_API uint32_t PB_UpdateByteCount(void* object);

/* Remembers place, byte count and partial byte of the unit. [writer] */
CORVANE_API uint32_t PB_SetBookmark(void* object);

/* Goes back to the bookmark, as often as wanted. PB_FAILED: none since the last commit, flush or new buffer. Modes 5 and
 * 6 do not go back in their count of zero bytes. [writer] */
CORVANE_API uint32_t PB_GotoBookmark(void* object);

/* ---- Reading ------------------------------------------------------------------------------------------------------- */

/* Copies the next `count` bytes of a pool to `destination` and frees their room. At most PB_GetFullness bytes may be
 * taken, see LIMITS. PB_FAILED: linear modes, more than the pool's size, null `destination` with a count. [reader] */
CORVANE_API uint32_t PB_GetBytes(void* object, void* destination, uint32_t count);

/* Returns how many committed bytes lie in the buffer; in a pool, as many can be read. [any] */
CORVANE_API uint32_t PB_GetFullness(void* object);

/* ---- State --------------------------------------------------------------------------------------------------------- */

/* Returns the bytes of the unit. [writer] */
CORVANE_API uint32_t PB_GetEncBytes(void* object);

/* Returns the bits of the unit, modulo 2^32. [writer] */
CORVANE_API uint32_t PB_GetEncBits(void* object);

/* Returns how many bits stand in the partial byte, 0 to 7. [writer] */
CORVANE_API uint32_t PB_GetBitPosition(void* object);

/* Sets that. PB_FAILED for a value above 7. [writer] */
CORVANE_API uint32_t PB_SetBitPosition(void* object, uint32_t value);

/* Returns the partial byte, its bits at the top of the low 8. [writer] */
CORVANE_API uint32_t PB_GetSymbol(void* object);

/* Sets that. PB_FAILED for a value above 255. [writer] */
CORVANE_API uint32_t PB_SetSymbol(void* object, uint32_t value);

/* Returns the low 32 bits of the address of the buffer. [writer] */
CORVANE_API uint32_t PB_GetBaseAddr(void* object);

/* Returns the size of the buffer in bytes. [writer] */
CORVANE_API uint32_t PB_GetBufSize(void* object);

/* Returns the place in the buffer where the next byte will stand. [writer] */
CORVANE_API uint32_t PB_GetCurrAddr(void* object);

/* Writes 5, 3, 0, 0. [any] */
CORVANE_API uint32_t PB_GetVersionInfo(uint8_t* a, uint8_t* b, uint8_t* c, uint8_t* d);

#ifdef __cplusplus
}
#endif

#endif
