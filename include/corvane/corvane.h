/*
 * corvane.h: the C interface of libcorvane, the media presentation layer of a video-surveillance client.
 *
 * LIFE CYCLE. Corvane_Initial makes an instance, Corvane_CreateChannel a channel on it, Corvane_StartChannel starts the
 * channel's worker, Corvane_InputEncodedMediaFrame feeds it, Corvane_StopChannel and Corvane_DeleteChannel end it,
 * Corvane_Release ends the instance and whatever the client forgot on it. The whole loop:
 *
 *     void* instance = NULL;
 *     void* channel = NULL;
 *     ChannelSettings settings = {0};
 *     Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
 *     Corvane_CreateChannel(instance, &channel, &settings);
 *     Corvane_RegisterRawDataCallback(channel, onPicture, context, 4, 0);
 *     Corvane_StartChannel(channel, 0);
 *     while (nextFrame(&header))
 *         Corvane_InputEncodedMediaFrame(channel, &header);
 *     Corvane_StopChannel(channel);
 *     Corvane_DeleteChannel(instance, &channel);
 *     Corvane_Release(&instance);
 *
 * STATUS. Every export returns one of the Status_* words below. Failure is a negative number when the word is read as
 * int32_t. No export throws, aborts or prints.
 *
 * HANDLES. Instances and channels are opaque pointers. A null handle is Status_InvalidArgument; a handle that was deleted
 * or never came from this library is undefined. The client must not delete a channel while another of its own threads
 * is inside a call with that handle.
 *
 * THREADS. Any export may be called from any thread, unless its text says otherwise. Thread words used below:
 *   [any]     any client thread, also from inside every callback of every channel.
 *   [any*]    any client thread and callbacks of other channels; from inside a callback or filter of the same channel (or,
 *             for Corvane_Release, of any channel of that instance) the call returns Status_Failed at once and does nothing.
 * Each channel has one worker thread while it is started, and one render thread from creation to deletion.
 *
 * CALLBACKS. No lock of the library is held while a callback runs, so every pair of callback and export either completes
 * or returns Status_Failed at once; none hangs:
 *
 *   callback            thread          [any] exports   [any*] exports, own channel   [any*] exports, other channel
 *   stream info         worker          complete        Status_Failed                 complete
 *   client filter       worker          complete        Status_Failed                 complete
 *   picture             render thread   complete        Status_Failed                 complete
 *   after display       render thread   complete        Status_Failed                 complete
 *
 * One exception: Corvane_InputEncodedMediaFrame on a channel that blocks when full (option 42 given as 0) never blocks in
 * a callback of the same channel; it returns Status_QueueFull there. Two channels whose callbacks stop each other at the same moment: one of the
 * two calls returns Status_Failed.
 * Pointers given to a callback are valid until it returns. After Corvane_StopChannel returned no stream-info callback and no
 * filter call runs; after Corvane_DeleteChannel returned no callback at all. Registering a picture or after-display callback
 * waits for a running call of the one that it replaces (not inside that call itself), so that its context may be freed.
 *
 * WHAT THE LIBRARY DOES TO YOUR PROCESS. Nothing beyond memory and threads: no signal handler, no locale, no environment,
 * no working directory, no output, no descriptor left open. Exhausted memory becomes Status_OutOfMemory where it is told, Status_Failed in
 * between, and a lost picture on the library's own threads.
 *
 * COLOURS. All conversion to RGB is full-range BT.601, whatever the stream signals, so that a change of renderer never
 * changes the colours. A stream in limited range shows black as 16.
 *
 * Strict C99, C++ through extern "C". All records are little-endian with the natural alignment of a 64-bit build.
 */
#ifndef CORVANE_CORVANE_H
#define CORVANE_CORVANE_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define CORVANE_API __attribute__((visibility("default")))
#else
#define CORVANE_API
#endif

/* Value for `version` of Corvane_Initial: major in the low byte, minor in the next. */
#define CORVANE_VERSION 0x0505u

/* ---- Status words -------------------------------------------------------------------------------------------------- */

/* Success. */
#define Status_Ok ((uint32_t)0x00000000u)
/* Generic failure: no picture, a refused call from inside a callback, an unexpected error. Nothing to repair by the caller. */
#define Status_Failed ((uint32_t)0xFFFFFFFFu)
/* The handle stands for a kind of channel that this export does not accept. */
#define Status_WrongChannelType ((uint32_t)0x80000001u)
/* An allocation failed. Nothing was done; the call may be tried again. */
#define Status_OutOfMemory ((uint32_t)0x80000002u)
/* A required pointer is null or a value cannot stand. Mend the call. */
#define Status_InvalidArgument ((uint32_t)0x80000003u)
/* Unknown option, unknown kind, or a function that this version does not have. */
#define Status_NotSupported ((uint32_t)0x80000004u)
/* The client was built against another version of the library. */
#define Status_VersionMismatch ((uint32_t)0x80000005u)
/* `streamType` is not accepted here, or the channel's media mode excludes it. Only this frame is refused. */
#define Status_UnsupportedMedia ((uint32_t)0x8006010Au)
/* The queue is full and the channel does not block. Drop the frame or try again later. */
#define Status_QueueFull ((uint32_t)0x8006010Cu)
/* The instance was made decode-only. */
#define Status_DecodeOnlyInstance ((uint32_t)0x80060111u)
/* No picture maker for the format. */
#define Status_UnknownPictureFormat ((uint32_t)0x80060116u)
/* The channel's worker is not running: start the channel. */
#define Status_ChannelNotStarted ((uint32_t)0x8006011Bu)
/* The caller's buffer is smaller than the result. */
#define Status_BufferTooSmall ((uint32_t)0x80060124u)

/* ---- Numbers ------------------------------------------------------------------------------------------------------- */

/* Pixel formats. w is the width in pixels; the stride is in bytes. Other numbers do not exist. */
enum {
    PF_I420 = 1,             /* planes Y, U, V, 4:2:0; Y stride (w + 63) & ~63, chroma half of it */
    PF_YUY2 = 3,             /* bytes Y U Y V; stride (2 w + 31) & ~31 */
    PF_UYVY = 4,             /* bytes U Y V Y; stride as PF_YUY2 */
    PF_RGB555 = 5,           /* 16 bits, blue in the low bits; stride ((16 w + 31) >> 3) & ~3 */
    PF_RGB565 = 6,           /* 16 bits, blue in the low bits; stride as PF_RGB555 */
    PF_BGR24 = 7,            /* bytes B G R; stride ((24 w + 31) >> 3) & ~3 */
    PF_BGR24_FLIP = 8,       /* as PF_BGR24, first row in memory is the bottom of the picture */
    PF_BGRA32 = 9,           /* bytes B G R 0; stride 4 w */
    PF_BGR555 = 12,          /* as PF_RGB555, red in the low bits */
    PF_BGR565 = 13,          /* as PF_RGB565, red in the low bits */
    PF_RGB24 = 14,           /* bytes R G B; stride as PF_BGR24 */
    PF_RGBA32 = 15,          /* bytes R G B 0; stride 4 w */
    PF_YV12 = 16,            /* as PF_I420 with planes Y, V, U */
    PF_BGRA32_FLIP = 17,     /* as PF_BGRA32, first row in memory is the bottom of the picture */
    PF_NV12 = 0x3231564E     /* plane Y, then one plane of U V pairs; stride (w + 31) & ~31 */
};

/* `streamType` of MediaFrameHeader. */
enum {
    CORVANE_STREAM_JPEG = 1,
    CORVANE_STREAM_H263 = 2,             /* vendor's H.263 family; this version has no decoder for it */
    CORVANE_STREAM_MPEG4 = 4,
    CORVANE_STREAM_H264 = 8,
    CORVANE_STREAM_H265 = 16,
    CORVANE_STREAM_PLACEHOLDER = 255,
    CORVANE_STREAM_G7221 = 256,
    CORVANE_STREAM_G729A = 512,
    CORVANE_STREAM_AAC = 1024,
    CORVANE_STREAM_AMR = 4096,
    CORVANE_STREAM_MULAW = 8192,
    CORVANE_STREAM_ALAW = 16384,
    CORVANE_STREAM_G726 = 32768,
    CORVANE_STREAM_METADATA_XML = 0x20000,
    CORVANE_STREAM_METADATA_JSON = 0x40000
};

/* `flags` of Corvane_Initial. */
enum {
    CORVANE_FLAG_DECODE_ONLY = 0x0001,    /* no live channels: Corvane_CreateChannel returns Status_DecodeOnlyInstance */
    CORVANE_FLAG_GDI = 0x0002,            /* plain window rendering; not together with 0x0004 */
    CORVANE_FLAG_NO_FALLBACK = 0x0004,    /* a failing default renderer is not replaced */
    CORVANE_FLAG_GDI_COMPOSE = 0x0008,
    CORVANE_FLAG_GDI_STRETCH = 0x0010,
    CORVANE_FLAG_GDI_LEGACY = 0x0100,
    CORVANE_FLAG_DECODER_FALLBACK = 0x2000 /* a failing hardware decoder may be replaced by software */
};

/* ---- The frame record ---------------------------------------------------------------------------------------------- */

/* A rectangle of a motion window, in capture pixels. */
typedef struct MotionRect {
    uint16_t x, y, width, height;
} MotionRect;

/* One record of `objects`, 32 bytes. */
typedef struct ObjectRecord {
    uint32_t id;           /* slot 1 to 16; the last record's id is the count reported */
    uint32_t valid;        /* non-zero: the record counts */
    uint32_t value;
    uint16_t level;
    uint16_t corner[8];    /* four corner points, x then y, in capture pixels */
    uint16_t reserved30;
} ObjectRecord;

/*
 * One encoded frame, 264 bytes. The record and all it points at are read only during the call and copied once; the
 * caller may reuse everything as soon as the call returns. Fields named reserved are carried along and not read.
 */
typedef struct MediaFrameHeader {
    const uint8_t* data;          /*   0 headerSize frame header bytes, then the payload; may be null when both sizes are 0 */
    uint32_t headerSize;          /*   8 bytes in front of the payload, may be 0 */
    uint32_t payloadSize;         /*  12 bytes of encoded payload; both sizes together at most 256 MiB */
    uint32_t streamType;          /*  16 CORVANE_STREAM_* */
    uint32_t audioBlockCount;     /*  20 audio: coded blocks in the payload */
    uint32_t frameType;           /*  24 video: 0 key frame, else a frame that depends on others */
    uint32_t timeSeconds;         /*  28 wall-clock time, seconds since 1970 UTC */
    uint32_t timeMilliseconds;    /*  32 milliseconds of both timeSeconds and streamSeconds */
    uint32_t reserved36;          /*  36 */
    uint32_t audioSampleRate;     /*  40 audio: samples per second */
    uint8_t audioChannels;        /*  44 audio: channel count */
    uint8_t reserved45[11];       /*  45 */
    uint32_t motionState[3];      /*  56 video: state of each motion window, 0 not in use */
    uint32_t motionAlert[3];      /*  68 video: non-zero when the window is in alarm */
    uint8_t motionId[3];          /*  80 video: identifier of each window */
    uint8_t reserved83;           /*  83 */
    union {                       /*  84 */
        MotionRect motionRect[3]; /*     video: the windows */
        struct {
            uint32_t audioBitRate; /*     audio: bit rate of G.726, bits per second */
            uint8_t audioPacking;  /*     audio: G.726 packing, non-zero: most significant bits first */
            uint8_t reserved89[19];
        } audio;
    } detail;
    uint32_t reserved108;         /* 108 */
    uint64_t reservedTail;        /* 112 */
    const uint8_t* extension;     /* 120 null, or the packet extension */
    uint32_t extensionSize;       /* 128 bytes at extension */
    uint32_t recordSize;          /* 132 264; 0 means a record of 176 bytes; others: bytes to read, at most 264 */
    const void* references;       /* 136 written by the library in its own copy */
    uint64_t reserved144;         /* 144 */
    uint32_t pictureWidth;        /* 152 video: decoded picture size, pixels; 0: as decoded */
    uint32_t pictureHeight;       /* 156 */
    uint32_t reserved160[5];      /* 160 */
    uint32_t daylight;            /* 180 non-zero while daylight saving time is in force */
    int32_t timeZoneSeconds;      /* 184 offset of the time zone from UTC */
    uint32_t streamSeconds;       /* 188 stream clock, seconds; with timeMilliseconds the time of all pacing */
    uint32_t reserved192[3];      /* 192 */
    uint16_t captureWidth;        /* 204 video: picture size of the sensor, pixels */
    uint16_t captureHeight;       /* 206 */
    uint16_t cropX;               /* 208 video: part of the sensor picture that the stream shows, capture pixels */
    uint16_t cropY;               /* 210 */
    uint16_t cropWidth;           /* 212 */
    uint16_t cropHeight;          /* 214 */
    uint64_t reserved216;         /* 216 */
    const void* motionInfo;       /* 224 null, or non-null to have it point at the copy's motionState */
    const uint8_t* vendorHeader;  /* 232 null, or a pointer into the frame header bytes */
    uint32_t vendorHeaderSize;    /* 240 bytes at its end that belong to the vendor */
    uint32_t reserved244;         /* 244 */
    uint8_t objectCount;          /* 248 records at objects */
    uint8_t reserved249[7];       /* 249 */
    const ObjectRecord* objects;  /* 256 null, or objectCount records */
} MediaFrameHeader;

/* A time that travels with a frame, 12 bytes. */
typedef struct FrameTimeRecord {
    uint32_t seconds;
    uint32_t milliseconds;
    uint16_t timeZone;    /* 48 minus the offset in quarters of an hour: 48 is UTC, 44 an hour east of it */
    uint16_t daylight;    /* 1 while daylight saving time is in force */
} FrameTimeRecord;

/* @EXPORTS@ */

#ifdef __cplusplus
}
#endif

#endif
