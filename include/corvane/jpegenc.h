/*
 * jpegenc.h: the JPEG encoder of libcorvane.
 *
 * Takes 8-bit planar YCbCr, 4:2:0 or 4:2:2, or one grey plane, and writes complete baseline sequential JPEG streams (ITU-T
 * T.81) through a bit packer, see bitpacker.h: into a linear buffer, or into a circular pool that another thread drains.
 * Integers only, so the same bytes on every machine. Nothing is allocated after JPEGEnc_Initial. A whole loop:
 *
 *   JPEGEncOptions options = {0};
 *   JPEGEncRequest output = {JPEGENC_OUTPUT, 0, (uint64_t)(uintptr_t)buffer, size, 0};
 *   JPEGEncFrame frame = {0, 0};
 *   void* encoder = NULL;
 *   options.Version = JPEGENC_VERSION;
 *   options.EncodingWidth = options.InputWidth = width;
 *   options.EncodingHeight = options.InputHeight = height;
 *   options.Quality = 50;
 *   options.Interleaved = 1;
 *   options.JFIFHeader = 1;
 *   options.Colour = 1;
 *   options.Subsampling = 1;
 *   options.PackerMode = 1;
 *   options.PlaneY = planeY, options.PlaneU = planeU, options.PlaneV = planeV;
 *   JPEGEnc_Initial(&encoder, &options);
 *   JPEGEnc_SetOptions(encoder, &output);
 *   JPEGEnc_OneFrame(encoder, &frame);
 *   JPEGEnc_Release(&encoder);
 *
 * after which frame.EncodedBytes bytes of `buffer` are the picture. Per picture: JPEGENC_OUTPUT where the output moves,
 * JPEGENC_PLANES where the input moves, JPEGENC_ENCODING_SIZE where the size changes, JPEGEnc_OneFrame.
 *
 * RESULTS. 0 is success and JPEGENC_FAILED failure, unless the text says that a value is returned. A null handle, record or
 * address is JPEGENC_FAILED, never a crash; releasing null is no failure. Any other pointer that JPEGEnc_Initial did not give
 * is undefined. No call throws or aborts. The only output is one line on standard error where JPEGEnc_Initial refuses an
 * encoding range beyond the input.
 *
 * PLANES. The client owns them and must keep them until JPEGEnc_OneFrame returns. A Y row takes InputWidth bytes, a chroma
 * row (InputWidth + 1) / 2. Of Y the EncodingWidth x EncodingHeight pixels from (HorzOffset, VertOffset) on are read and
 * no others; of Cb and Cr (EncodingWidth + 1) / 2 columns and, in 4:2:0, (EncodingHeight + 1) / 2 rows (in 4:2:2
 * EncodingHeight rows). Missing columns of the last blocks repeat the last pixel, missing rows the last row. The first
 * chroma byte lies (InputWidth / 2) x (VertOffset / 2) + HorzOffset / 2 bytes (4:2:2: x VertOffset) from the plane's
 * start, in integer divisions: with an odd InputWidth that is a whole number of rows only for VertOffset 0 (4:2:0: or
 * 1). Samples are written as they are; readers of JPEG files take them as full-range BT.601.
 *
 * FAILED PICTURES. When the output is full, a pool's callback gives up or JPEGEnc_Quit was called, JPEGEnc_OneFrame fails
 * and EncodedBytes is 0. Bytes of the broken picture are pending then: throw them away with JPEGENC_FLUSH, which also ends
 * a quit, or with JPEGENC_OUTPUT. After JPEGENC_CONTINUE alone the next picture is written after them, which works only at
 * a byte boundary, since a picture does not begin inside a byte.
 *
 * THREADS. An encoder is used by one thread at a time; encoders share nothing. With a pool (PackerMode 2, 4, 6) one other
 * thread may drain it meanwhile. A picture can be taken only after it was committed as a whole, so a pool must hold the
 * largest picture. Thread words used below:
 *   [writer]  the thread that encodes.
 *   [reader]  the thread that drains the pool, also while JPEGEnc_OneFrame runs.
 *   [any]     any thread at any time between JPEGEnc_Initial and JPEGEnc_Release.
 * Callbacks run on the thread of the call, with no lock held, and may call [reader] and [any] exports.
 *
 * LIMITS. Refused with JPEGENC_FAILED wherever it is given, and nothing changes: an encoding width or height above 65,535
 * (what a file can state; common readers take at most 65,500), a restart interval above 65,535, ModeTag above 4,
 * InputWidth x InputHeight or InputWidth x VertOffset of 2^32 and more, Quality above 35,495,597 (the product with a
 * table entry would pass 32 bits), a comment above 65,523 bytes.
 * PackerMode 1 and 2 make JPEG streams. 3 and 4 write the same without the escape rule, which no decoder reads; with 5 and
 * 6, which have no stuffing, no picture succeeds.
 *
 * Strict C99, C++ through extern "C". Records are little-endian with the natural alignment of a 64-bit build.
 */
#ifndef CORVANE_JPEGENC_H
#define CORVANE_JPEGENC_H

#include <stdint.h>

#include "corvane/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Value for JPEGEncOptions.Version: number 11 in the low byte, 0 in the two bytes above; the top byte is free. */
#define JPEGENC_VERSION 0x0100000Bu
/* The result of a call that failed. */
#define JPEGENC_FAILED ((uint32_t)0xFFFFFFFFu)

/* What JPEGEnc_Initial and JPEGEnc_QueryMemSize read; 152 bytes. */
typedef struct JPEGEncOptions {
    uint32_t Version;         /* 0: JPEGENC_VERSION */
    uint32_t EncodingWidth;   /* 4: pixels, 0 to 65535 */
    uint32_t EncodingHeight;  /* 8: pixels, 0 to 65535 */
    uint32_t InputWidth;      /* 12: bytes of a Y row */
    uint32_t InputHeight;     /* 16: rows of the Y plane */
    uint32_t HorzOffset;      /* 20: column of the first pixel to encode */
    uint32_t VertOffset;      /* 24: row of the first pixel to encode */
    uint32_t Quality;         /* 28: scale of the quantisation tables in units of 1/50: 50 takes them as they are, more is
                                 coarser and smaller. Divisors are held to 2 to 255. */
    uint32_t RestartInterval; /* 32: MCUs (scans of one component: blocks) between restart markers; 0: none */
    uint32_t Interleaved;     /* 36: 1: one scan of all components; else a scan for each */
    uint32_t OptimizeHuffman; /* 40: 1: symbols counted in a picture get the better codes in the next one */
    uint32_t JFIFHeader;      /* 44: 1: write APP0, 72 x 72 dots per inch */
    uint32_t QuantTable;      /* 48: luma table: 1: T.81 table K.1; 2: a finer one of the same kind; else: 16 in the low
                                 frequencies. Chroma always has table K.2. */
    uint32_t Colour;          /* 52: 1: Y, Cb, Cr; else grey, Y alone */
    uint32_t Subsampling;     /* 56: 2: 4:2:2; else 4:2:0. A grey picture also says so in its sampling factors. */
    uint32_t ModeTag;         /* 60: 0: none; 1 "FM_PG Mode", 2 "FL_PG Mode", 3 "FM_IL Mode", 4 "FL_IL Mode" in APP2 */
    uint32_t PoolSize;        /* 64: bytes of the packer's pool; a power of two, or 0 */
    uint32_t RetryLimit;      /* 68: this and the next fields: as in PBInitial */
    uint32_t LockContext;     /* 72 */
    uint32_t FullContext;     /* 76 */
    uint32_t PackerMode;      /* 80: 1: linear buffer; 2: pool. See LIMITS for 3 to 6. */
    uint32_t reserved84;
    uint32_t (*FullCallback)(uint32_t context); /* 88: may be null */
    void (*LockCallback)(uint32_t context);     /* 96: may be null */
    void (*UnlockCallback)(uint32_t context);   /* 104: may be null */
    void* Memory;       /* 112: JPEGEnc_QueryMemSize bytes of any alignment that outlive the encoder, or null to allocate */
    const void* PlaneY; /* 120: starts of the planes; null until JPEGENC_PLANES gives them */
    const void* PlaneU; /* 128 */
    const void* PlaneV; /* 136 */
    const void* Comment; /* 144: comment bytes, read in JPEGEnc_OneFrame; null with none */
} JPEGEncOptions;

/* In and out of JPEGEnc_OneFrame; 8 bytes. */
typedef struct JPEGEncFrame {
    uint32_t CommentSize;  /* in: bytes of the comment for APP2, 0 to 65523 */
    uint32_t EncodedBytes; /* out: bytes of the whole picture; 0 after a failure */
} JPEGEncFrame;

/* In of JPEGEnc_SetOptions; 32 bytes. Numbers are read from the low 32 bits of a value, pointers from all 64. */
typedef struct JPEGEncRequest {
    uint32_t Code;
    uint32_t reserved4;
    uint64_t Value0; /* 8 */
    uint64_t Value1; /* 16 */
    uint64_t Value2; /* 24 */
} JPEGEncRequest;

/* Codes of JPEGEncRequest. */
enum {
    JPEGENC_CONTINUE = 1,       /* ends a JPEGEnc_Quit */
    JPEGENC_PLANES = 2,         /* starts of Y, U, V; the offsets are added */
    JPEGENC_OUTPUT = 3,         /* buffer and its bytes, as PB_SetNewBuf, whose refusals are not passed on */
    JPEGENC_FLUSH = 4,          /* forgets all bytes that were not taken, as PB_FlushPool */
    JPEGENC_COMMENT = 5,        /* pointer to the comment bytes */
    JPEGENC_QUALITY = 7,        /* Quality */
    JPEGENC_SUBSAMPLING = 8,    /* Subsampling; sizes of the chroma planes follow at the next JPEGENC_ENCODING_SIZE */
    JPEGENC_COLOUR = 10,        /* Colour */
    JPEGENC_ENCODING_SIZE = 14, /* EncodingWidth, EncodingHeight; not compared with the input, which must hold them */
    JPEGENC_INPUT_SIZE = 21,    /* InputWidth, InputHeight, at least as large as encoding size and offsets each; give
                                   JPEGENC_PLANES afterwards */
    JPEGENC_OFFSETS = 30,       /* HorzOffset, VertOffset; the planes' starts move along; not compared with the input */
    JPEGENC_MODE_TAG = 36,      /* ModeTag */
    JPEGENC_QUANT_TABLE = 39    /* QuantTable */
};

/* Returns the bytes that `Memory` needs: 3498 and what the packer needs for PoolSize and PackerMode. JPEGENC_FAILED for a
 * null record and for a sum beyond 32 bits. [any] */
CORVANE_API uint32_t JPEGEnc_QueryMemSize(const JPEGEncOptions* options);

/* Makes an encoder in `Memory` (which is zeroed) or in memory of its own, and writes it to `*handle`. JPEGENC_FAILED, with
 * null in `*handle` and `Memory` as it was: wrong Version, a value beyond LIMITS, what PB_Initial refuses, no memory, or an
 * encoding range (offset and size) beyond the input, which is also reported on standard error. [any] */
CORVANE_API uint32_t JPEGEnc_Initial(void** handle, const JPEGEncOptions* options);

/* Encodes one picture, appends it to the output, and commits it. JPEGENC_FAILED: see FAILED PICTURES; a null plane
 * that would be read; a null or too long comment. Waits only in FullCallback. [writer] */
CORVANE_API uint32_t JPEGEnc_OneFrame(void* handle, JPEGEncFrame* frame);

/* Does what `request` says. JPEGENC_FAILED, and nothing changes: unknown Code, a value beyond LIMITS, JPEGENC_INPUT_SIZE below
 * what it must hold. [writer], JPEGENC_CONTINUE [any] */
CORVANE_API uint32_t JPEGEnc_SetOptions(void* handle, const JPEGEncRequest* request);

/* Takes the next `count` bytes out of the pool: at most JPEGEnc_QueryFilledBufferSpace of them. JPEGENC_FAILED: a linear
 * buffer, more than the pool's size, null `destination` with a count. [reader] */
CORVANE_API uint32_t JPEGEnc_TakeData(void* handle, void* destination, uint32_t count);

/* Returns how many bytes of whole pictures lie in the output. [any] */
CORVANE_API uint32_t JPEGEnc_QueryFilledBufferSpace(void* handle);

/* Makes a write that waits for room in a pool fail at its next turn, and all later ones, until JPEGENC_CONTINUE or
 * JPEGENC_FLUSH. [any] */
CORVANE_API uint32_t JPEGEnc_Quit(void* handle);

/* Ends the encoder: frees memory of its own, forgets memory of the client, and puts null into `*handle`. A null `handle`
 * or `*handle` is no failure. No thread may be inside a call with it. [writer] */
CORVANE_API uint32_t JPEGEnc_Release(void** handle);

/* Writes 11, 0, 0, 1. [any] */
CORVANE_API uint32_t JPEGEnc_GetVersionInfo(uint8_t* a, uint8_t* b, uint8_t* c, uint8_t* d);

#ifdef __cplusplus
}
#endif

#endif
