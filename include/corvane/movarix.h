/*
 * movarix.h: the contract between libcorvane and Movarix.so, the side library that writes AVI files, and the records that
 * clients pass through libcorvane to it. Who records with the Movarix.so of this package needs the records; who writes a
 * Movarix.so of their own needs the functions as well.
 *
 * libcorvane looks for Movarix.so once a process, in the first Corvane_Initial, and takes it where it has all functions
 * below; Movarix_GetCurrentFileSize alone may be missing. Every function may be called from any thread of the client, with
 * no lock of libcorvane held. Each returns a status, negative on failure when read as int32_t, which the export of the
 * same name returns to the client.
 *
 * Strict C99, C++ through extern "C". All records are little-endian with the natural alignment of a 64-bit build.
 */
#ifndef CORVANE_MOVARIX_H
#define CORVANE_MOVARIX_H

#include <stdint.h>

#include "corvane/corvane.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records of the Movarix.so of this package ---------------------------------------------------------------------- */

/* A file could not be made or written: the errno of the system is in the low 16 bits. */
#define MOVARIX_SYSTEM_ERROR(number) ((uint32_t)0x80070000u | (uint32_t)(number))

/* `flags` of MovarixStart. */
enum {
    MOVARIX_START_REPLACE = 1             /* a file that is there is replaced */
};

/* The value of Corvane_StartAVIChannel, 48 bytes. */
typedef struct MovarixStart {
    uint32_t recordSize;      /*  0 48 */
    uint32_t flags;           /*  4 of MOVARIX_START_* */
    const char* path;         /*  8 of the first file, copied */
    uint64_t maxBytes;        /* 16 0: no limit; when reached, the next file begins at the next key frame */
    uint32_t maxSeconds;      /* 24 likewise */
    uint32_t reserved28[5];   /* 28 */
} MovarixStart;

/* `kind` of Corvane_InputDecodedAVIMedia: what the value is. */
enum {
    MOVARIX_DECODED_PICTURE = 1,          /* const RawPictureInfo*, of a pixel format */
    MOVARIX_DECODED_SOUND = 2             /* const RawAudioInfo* */
};

/* What a stream is compressed to: the value of the functions that set and get compressor parameters, 12 bytes. */
typedef struct MovarixCompressor {
    uint32_t type;            /* 0 pictures: CORVANE_STREAM_JPEG, _MPEG4 or _H264; sound: 0 (PCM), _MULAW or _ALAW */
    uint32_t bitRate;         /* 4 pictures: bits per second; 0: chosen by their size */
    uint32_t keyInterval;     /* 8 pictures: frames from one key frame to the next; 0: chosen */
} MovarixCompressor;

/* `id` of Corvane_SetChannelOption on an AVI channel. */
enum {
    MOVARIX_OPTION_PICTURES = 1,          /* value 0: pictures are not written */
    MOVARIX_OPTION_SOUND = 2              /* value 0: sound is not written */
};

/* ---- The functions of a Movarix.so ---------------------------------------------------------------------------------- */

/* What libcorvane offers the side library: decoder channels on the instance, see Corvane_CreateDecoderChannel. */
typedef struct AviHostCallbacks {
    uint32_t (*createDecoderChannel)(void* instance, void** channel, const DecoderChannelSettings* settings);
    uint32_t (*deleteDecoderChannel)(void* instance, void** channel);
    uint32_t (*inputToBeDecodedMediaFrame)(void* channel, const MediaFrameHeader* frame);
} AviHostCallbacks;

/* Makes the module of one instance. The host's functions work at once; the record is valid for the process. */
CORVANE_API uint32_t Movarix_Initial(void** module, void* instance, const AviHostCallbacks* host);
/* Ends it. All its channels were deleted before; decoder channels may still be deleted. */
CORVANE_API uint32_t Movarix_Release(void** module);
CORVANE_API uint32_t Movarix_CreateChannel(void* module, void** channel);
CORVANE_API uint32_t Movarix_CreateLiveChannel(void* module, void** channel);
CORVANE_API uint32_t Movarix_DeleteChannel(void** channel);
CORVANE_API uint32_t Movarix_StartChannel(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_StopChannel(void* channel);
CORVANE_API uint32_t Movarix_InputMedia(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_InputDecodedMedia(void* channel, uint32_t kind, uint64_t value);
/* Of the instance, for channels that are made later. */
CORVANE_API uint32_t Movarix_ChooseVideoCompressor(void* module, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_ChooseAudioCompressor(void* module, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_SetVideoCompressorParam(void* module, uint64_t value);
CORVANE_API uint32_t Movarix_GetVideoCompressorParam(void* module, uint64_t value);
CORVANE_API uint32_t Movarix_SetAudioCompressorParam(void* module, uint64_t value);
CORVANE_API uint32_t Movarix_GetAudioCompressorParam(void* module, uint64_t value);
/* Of one channel. */
CORVANE_API uint32_t Movarix_ChooseChannelVideoCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_ChooseChannelAudioCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_SetChannelVideoCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_GetChannelVideoCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_SetChannelAudioCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_GetChannelAudioCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_SetChannelOption(void* channel, uint32_t id, uint32_t value, uint32_t extra);
CORVANE_API uint32_t Movarix_GetCurrentFileSize(void* channel, uint64_t value);

#ifdef __cplusplus
}
#endif

#endif
