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

/*
 * RECORDING. A channel writes one file after the other from Corvane_StartAVIChannel to Corvane_StopAVIChannel: one stream of
 * pictures, one of sound. docs/recording.md is the guide.
 *
 * Statuses of this library, beside those of corvane.h, which mean here:
 *   MOVARIX_SYSTEM_ERROR(errno)   a file cannot be made or written. After a start the same status comes for all further input and
 *                                 from the stop, until the next start; the file has what was written until then
 *   Status_UnsupportedMedia       the type cannot be recorded, or the payload is not of its type. Only this frame is refused
 *   Status_InvalidArgument        a pointer is null, or a record does not fit its type. Only this call is refused
 *   Status_ChannelNotStarted      start the channel
 *   Status_NotSupported           MovarixWriter.so is not beside Movarix.so or cannot be loaded, libavcodec has no such encoder,
 *                                 or an unknown option or kind
 *   Status_OutOfMemory            this frame is lost, the recording goes on
 */

/* A file could not be made or written: the errno of the system is in the low 16 bits. */
#define MOVARIX_SYSTEM_ERROR(number) ((uint32_t)0x80070000u | (uint32_t)(number))

/* `flags` of MovarixStart. */
enum {
    MOVARIX_START_REPLACE = 1             /* a file that is there is replaced, once the first picture or sound is written */
};

/*
 * The value of Corvane_StartAVIChannel, 48 bytes, copied with its path. The next file is NAME-2.avi after NAME.avi, then
 * NAME-3.avi. Without MOVARIX_START_REPLACE a first file that is there is MOVARIX_SYSTEM_ERROR(EEXIST), and numbers that are taken
 * are passed over.
 */
typedef struct MovarixStart {
    uint32_t recordSize;      /*  0 48; bytes to read, at least 16, the others count as 0 */
    uint32_t flags;           /*  4 of MOVARIX_START_* */
    const char* path;         /*  8 of the first file, bytes as the system takes them; a relative one from the folder that is the
                                    working one at the start */
    uint64_t maxBytes;        /* 16 0: no limit; when reached, the next file begins at the next key frame */
    uint32_t maxSeconds;      /* 24 likewise, of play */
    uint32_t reserved28[5];   /* 28 */
} MovarixStart;

/*
 * The value of Corvane_InputAVIMedia is a const MediaFrameHeader*, read during the call. Pictures: CORVANE_STREAM_JPEG, _H263,
 * _MPEG4, _H264 and _H265, the latter two in Annex B form; sound: _AAC (low complexity, raw or with ADTS headers), _MULAW, _ALAW,
 * _G726. They are written as they are, but for ADTS headers, which are left out, and G.726, which files have with the most
 * significant bits first. Where a compressor was chosen, other types are transcoded, and sound may be of any type that
 * libcorvane decodes.
 *   A file begins with a key frame; what comes before the first one is passed over. Parameter sets in frames of their own, or
 * sent once only, are joined to the picture that needs them. The first second of each file is held back in memory, at most
 * 16 MiB or 512 frames, since its header says which streams it has and at what rate: the rate is that of the first steps.
 *   Times are those of the stream clock, in records of 176 bytes of the wall clock. A picture lies within half a period of its
 * time; chunks without bytes fill the gaps. A step of 11 s or more in a live channel, of an hour or more in others, and a step
 * back count as the step before them. Times of presentation, which do not rise from frame to frame, keep the order of the frames.
 * Silence fills gaps of sound that are longer than a frame and 40 ms.
 *   A key frame begins the next file where the size or the type changed, a limit was reached, sound came that the file has no
 * stream for, or pictures come so much faster than the rate that they lie a second behind their times.
 */

/* `kind` of Corvane_InputDecodedAVIMedia: what the value is. Times are the record's timeSeconds and timeMilliseconds. */
enum {
    MOVARIX_DECODED_PICTURE = 1,          /* const RawPictureInfo*, of a format without a file header: not 5 to 8 and 10. RGB counts
                                             as full-range BT.601, as libcorvane makes it. The last row or column of odd sizes is left
                                             out. 2x2 to 16384 a side, 2^26 pixels; the first waits for the second, which
                                             shows the rate */
    MOVARIX_DECODED_SOUND = 2             /* const RawAudioInfo* */
};

/*
 * What a stream is compressed to: three numbers, of Corvane_Choose*Compressor (a, b, c), or the value of
 * Corvane_Set*CompressorParam and Corvane_Get*CompressorParam, a MovarixCompressor*, 12 bytes. They count from the next start on.
 */
typedef struct MovarixCompressor {
    uint32_t type;            /* 0 pictures: CORVANE_STREAM_JPEG, _MPEG4 or _H264; 0: as they come, decoded ones as MPEG-4.
                                   Sound: 0 (PCM of 16 bits), _MULAW or _ALAW; before a choice sound is written as it comes, decoded
                                   sound as PCM */
    uint32_t bitRate;         /* 4 pictures: bits per second, below 2^31; 0: chosen by their size; JPEG: by quality */
    uint32_t keyInterval;     /* 8 pictures: frames from one key frame to the next, below 2^31; 0: two seconds */
} MovarixCompressor;

/* `id` of Corvane_SetChannelOption on an AVI channel. They count at once; pictures begin again with a key frame. */
enum {
    MOVARIX_OPTION_PICTURES = 1,          /* value 0: pictures are not written; 1. A recording without them is of sound alone */
    MOVARIX_OPTION_SOUND = 2              /* value 0: sound is not written; 1 */
};

/* ---- The functions of a Movarix.so ---------------------------------------------------------------------------------- */

/*
 * What follows holds for every Movarix.so, but for what is marked "here", which is what that of this package does. A handle that
 * a function made is given to the others until it is deleted; libcorvane deletes every channel before its module, and never calls
 * with a handle after that. A client that uses one channel from several threads calls several functions at a time.
 */

/*
 * What libcorvane offers the side library: Corvane_CreateDecoderChannel, Corvane_DeleteDecoderChannel and
 * Corvane_InputToBeDecodedMediaFrame of corvane.h, with `instance` of Movarix_Initial. Results come by the callback of
 * DecoderChannelSettings, on the same thread, before the call returns. Any thread may call them, from Movarix_Initial to the return
 * of Movarix_Release. The side library deletes the channels that it made.
 */
typedef struct AviHostCallbacks {
    uint32_t (*createDecoderChannel)(void* instance, void** channel, const DecoderChannelSettings* settings);
    uint32_t (*deleteDecoderChannel)(void* instance, void** channel);
    uint32_t (*inputToBeDecodedMediaFrame)(void* channel, const MediaFrameHeader* frame);
} AviHostCallbacks;

/*
 * Makes the module of one instance, inside Corvane_Initial. `*module` is null and gets the handle. The host's functions work at
 * once; the record is valid for the process. Negative: the instance has no AVI channels. Here: Status_InvalidArgument,
 * Status_OutOfMemory; does not block, loads nothing.
 */
CORVANE_API uint32_t Movarix_Initial(void** module, void* instance, const AviHostCallbacks* host);

/* Ends it, inside Corvane_Release. All its channels were deleted before; decoder channels may still be deleted. Here: Status_Ok. */
CORVANE_API uint32_t Movarix_Release(void** module);

/*
 * Make a channel, stopped. On success `*channel` gets the handle; negative: there is none. A live channel differs in steps of
 * times, see above. Here: the first call of a process loads MovarixWriter.so and FFmpeg (some 15 ms).
 */
CORVANE_API uint32_t Movarix_CreateChannel(void* module, void** channel);
CORVANE_API uint32_t Movarix_CreateLiveChannel(void* module, void** channel);

/* Ends a channel; here it is stopped first, and `*channel` becomes null. The status is not looked at. */
CORVANE_API uint32_t Movarix_DeleteChannel(void** channel);

/*
 * Here, `value`: const MovarixStart*. Creates the first file, empty, so that a bad path fails at once. Status_Failed: the channel
 * is started already. After a failed write it can be started again without a stop. Blocks for the file system.
 */
CORVANE_API uint32_t Movarix_StartChannel(void* channel, uint64_t value);

/*
 * Here: writes what is held back and the index; a first file that would be empty is removed. Stopped already is no error. Negative:
 * something of the recording was not written. Blocks for the file system.
 */
CORVANE_API uint32_t Movarix_StopChannel(void* channel);

/*
 * Here, `value`: const MediaFrameHeader*, see above. Written, held back or passed over: Status_Ok. Blocks for the file system, and
 * for the decoder and the encoder where it transcodes, whose negative status it returns.
 */
CORVANE_API uint32_t Movarix_InputMedia(void* channel, uint64_t value);

/* Here, `kind`: of MOVARIX_DECODED_*, and its record as `value`, read during the call. Blocks as Movarix_InputMedia. */
CORVANE_API uint32_t Movarix_InputDecodedMedia(void* channel, uint32_t kind, uint64_t value);

/*
 * Of the instance, for channels that are made later. Here, the first two: (a, b, c) are the fields of MovarixCompressor, of sound
 * (a, 0, 0); the others: `value` is a MovarixCompressor*. Status_UnsupportedMedia: the type is none of those. The first choice of
 * a type of pictures loads MovarixWriter.so, to see whether libavcodec has that encoder; else they do not block.
 */
CORVANE_API uint32_t Movarix_ChooseVideoCompressor(void* module, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_ChooseAudioCompressor(void* module, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_SetVideoCompressorParam(void* module, uint64_t value);
CORVANE_API uint32_t Movarix_GetVideoCompressorParam(void* module, uint64_t value);
CORVANE_API uint32_t Movarix_SetAudioCompressorParam(void* module, uint64_t value);
CORVANE_API uint32_t Movarix_GetAudioCompressorParam(void* module, uint64_t value);

/* The same of one channel, which wait for another call on it. */
CORVANE_API uint32_t Movarix_ChooseChannelVideoCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_ChooseChannelAudioCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Movarix_SetChannelVideoCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_GetChannelVideoCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_SetChannelAudioCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Movarix_GetChannelAudioCompressorParam(void* channel, uint64_t value);

/* Here, `id`: of MOVARIX_OPTION_*; `extra` is ignored. Status_NotSupported: another id. Waits for another call on the channel. */
CORVANE_API uint32_t Movarix_SetChannelOption(void* channel, uint32_t id, uint32_t value, uint32_t extra);

/*
 * May be missing. Here, `value`: uint64_t*, which gets the bytes of the current file, those included that wait in memory, but not what
 * is held back; after a stop, of the last file. Waits for nothing.
 */
CORVANE_API uint32_t Movarix_GetCurrentFileSize(void* channel, uint64_t value);

#ifdef __cplusplus
}
#endif

#endif
