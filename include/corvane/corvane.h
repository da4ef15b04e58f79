/*
 * corvane.h: the C interface of libcorvane, the media presentation layer of a video-surveillance client.
 *
 * LIFE CYCLE. Corvane_Initial makes an instance, Corvane_CreateChannel a channel on it, Corvane_StartChannel starts the
 * channel's worker, Corvane_InputEncodedMediaFrame feeds it, Corvane_StopChannel and Corvane_DeleteChannel end it,
 * Corvane_Release ends the instance with all channels that are still on it. The whole loop:
 *
 *     void* instance = NULL;
 *     void* channel = NULL;
 *     ChannelSettings settings = {0};
 *     Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
 *     Corvane_CreateChannel(instance, &channel, &settings);
 *     Corvane_RegisterRawDataCallback(channel, onPicture, context, CORVANE_PICTURE_BGRA32, 0);
 *     Corvane_StartChannel(channel, 0);
 *     while (nextFrame(&header))
 *         Corvane_InputEncodedMediaFrame(channel, &header);
 *     Corvane_StopChannel(channel);
 *     Corvane_DeleteChannel(instance, &channel);
 *     Corvane_Release(&instance);
 *
 * STATUS. Every export returns one of the Status_* words below. Failure is a negative number when the word is read as
 * int32_t. No export throws or aborts. The library prints nothing; libavcodec may print a line on standard error for
 * damaged input, which no setting of a decoder silences; a host can silence it with av_log_set_level.
 *
 * HANDLES. Instances and channels are opaque pointers. A null handle is Status_InvalidArgument; a handle that was
 * deleted or never came from this library is undefined. The client must not delete a channel while another of its own
 * threads is inside a call with that handle.
 *
 * THREADS. Any export may be called from any thread, unless its text says otherwise. Thread words used below:
 *   [any]     any client thread, also from inside every callback of every channel.
 *   [any*]    any client thread and callbacks of other channels; from inside a callback or filter of the same channel
 *             (for Corvane_Release: of any channel of that instance) the call returns Status_Failed at once and does
 *             nothing.
 * Each live channel has one worker thread while it is started, and one render thread from creation to deletion. A decoder
 * channel has no thread.
 *
 * CALLBACKS. No lock of the library is held while a callback runs, so every pair of callback and export either
 * completes or returns Status_Failed at once; none hangs:
 *
 *   callback            thread          [any] exports   [any*] exports, own channel   [any*] exports, other channel
 *   stream info         worker          complete        Status_Failed                 complete
 *   client filter       worker, render; complete        Status_Failed                 complete
 *                       the caller's
 *   picture             render thread   complete        Status_Failed                 complete
 *   on-screen text      render thread   complete        Status_Failed                 complete
 *   after display       render thread   complete        Status_Failed                 complete
 *   raw pictures        render thread   complete        Status_Failed                 complete
 *   raw sound           sound device's  complete        Status_Failed                 complete
 *   still overlay       the caller's    complete        Status_Failed                 complete
 *   decoded data        the caller's    complete        Status_Failed                 complete
 *   code of a plug-in   any             complete        Status_Failed                 Status_Failed, decoding completes
 *
 * In the code of a plug-in (while it is loaded or unloaded, in a factory, in a call on a decoder) no channel and no instance
 * can be stopped, deleted or released; a still of a decoded picture and a display are Status_Failed too, of every channel.
 * Corvane_InputEncodedMediaFrame on a channel that blocks when full (option 42 given as 0) does not block inside a
 * callback; it returns Status_QueueFull there. Of two channels whose callbacks stop or delete each other at the same
 * moment one is refused with Status_Failed.
 * Pointers given to a callback are valid until it returns. After Corvane_StopChannel has returned, no stream-info
 * callback, no filter call and no raw callback runs; after Corvane_DeleteChannel has returned, no callback at all.
 * Registering a picture, after-display, still-overlay or raw callback waits for a running call of the callback that it
 * replaces, and removing a filter for a running call of that filter, so that the old context may be freed. Inside a
 * callback they do not wait.
 *
 * WINDOWS. A window is an X11 window id on $DISPLAY, given as uintptr_t. The application makes, shows, moves and
 * destroys it; it may belong to another process and lie inside any toolkit's window. The library talks to the
 * server over one connection of its own, open while some channel has a window; nothing that a client calls waits
 * for the server but a snapshot of the window. On a window of a channel it selects Exposure and StructureNotify
 * for itself and takes the background away (background pixmap None), so that nothing flickers; it follows size,
 * place and visibility by itself and draws anew when the window was exposed, moved or resized. Nobody else should
 * draw on it. While a window cannot be drawn on (not mapped, destroyed, no such window, no server) nothing is put
 * and everything else goes on; another window may be given at any time. The picture fills the window without its
 * margins, whatever its proportions. Visuals of depth 16, 24, 30 and 32.
 *
 * RENDERERS. The default renderer takes the decoder's planes, scales and converts them once into the window's image and
 * lays on-screen text over picture and margins: black in text is transparent, a new second of the wall clock does not call
 * the text callback (bit 0 of option 45 has no effect), margins are black, the insets of an overview do not apply. Flags
 * 0x0002, 0x0010 and 0x0100 choose the plain renderer, which draws text on the margins only (over the picture too with
 * 0x0008), fills them with the background, and knows the fixed border. Where the default renderer cannot go on (the server
 * is gone, no memory for its surfaces) the plain one takes its place until the channel is deleted, and the stream-info
 * callback gets code 9 once; with flag 0x0004 it stays, and pictures are lost until it can go on, which only the statistics
 * report.
 *
 * SOUND. Each channel plays its sound on a device of its own, through SDL's audio subsystem and so through whichever sound
 * server the machine has. Its first frame of sound opens the device, since only a frame says the format: 1 to 8 channels,
 * 1,000 to 192,000 samples per second. Frames of any other format are not played. Another format in mid-stream, a stop and
 * audioEnabled 0 silence the channel at once and drop what waits; the next frame opens a device again. Each opening begins with
 * silence: twice the least power of two of samples that lasts 46 ms, so 128 ms at 8,000 per second, 171 ms at 48,000.
 *   Sound takes its turn in the queue with the pictures, and their times hold it back with them; in the media mode of sound
 * alone (2) its own times do. From there the device plays it at its own rate: nothing is resampled to keep step. Up to 43
 * frames wait for the device; a 44th is lost, and a ring that is full when the device takes it is lost as a whole, so that
 * sound is never late by more. Where nothing waits there is silence, in blocks of 1024 bytes. Volume is 0, which is
 * silent, to 5000, the stream's own level, in 128 steps; channels that play together are mixed by the sound server.
 *   Devices open and close on a thread of the library: no call waits for a sound server. While one opens, frames wait, and
 * those more than 150 ms older than the newest are lost. SDL gives a process 15 devices; a sixteenth channel is heard as soon
 * as another ends. A device that could not be opened is tried again by the first frame after 1 s, then 2, 4 and up to 32 s;
 * at once after another device was closed, a start, audioEnabled, or in another format. Without a sound card all else goes
 * on. `soundHeard`, `soundLostRing`, `soundLostDecoder` and `soundNotPlayed` of the statistics say what became of each frame.
 *   A host may use SDL too, before, after or beside a channel with sound, but must not leave it as a whole (SDL_Quit) while a
 * channel plays: that closes the devices of both. SDL's own environment variables count, as SDL_AUDIODRIVER.
 *
 * NOTHING APPEARS. A call that returns Status_Ok has queued a frame; what comes of it shows later.
 * Corvane_GetChannelStatistics says what became of every frame, and `lastCause` why the last one without a picture had
 * none; what libavcodec may print says less. The usual mistakes:
 *
 *   mistake                             counter that rises        lastCause           mend
 *   H.264 or H.265 from a container,    unitsFailed               NO_START_CODE       replace each length by 00 00 00 01;
 *   with a length before each unit                                                    send the parameter sets before
 *                                                                                     each key frame
 *   the wrong streamType                unitsFailed               WRONG_TYPE          give the type of the payload
 *   garbage, a cut or damaged payload   unitsFailed; some in      DAMAGED, or         hand over whole frames as encoded
 *                                       unitsWithoutPicture       NO_PICTURE
 *   no frame has frameType 0, or none   unitsAwaitingKeyFrame     NO_KEY_FRAME        set frameType 0 on key frames; ask
 *   has come yet                                                                      the camera for one
 *   a type that this version cannot     unitsWithoutDecoder       NO_DECODER          see CORVANE_STREAM_*
 *   decode
 *   times that do not rise while the    framesWithoutStep, and    TIMES_DO_NOT_RISE   give streamSeconds and
 *   queue buffers: each frame counts    queueFrames grows                             timeMilliseconds of each frame, or
 *   as long as the one before it                                                      a buffer time of 1
 *   no window and no picture callback   picturesNotPutNowhere     NO_WINDOW           give one of them
 *
 * TIMES. Times must rise from frame to frame of a class (video, sound). A step below 1 ms, or of 11 s and more, counts
 * as long as the step before it.
 *
 * WHAT THE LIBRARY DOES TO YOUR PROCESS. Nothing beyond memory, threads, the connection to the X server, SDL's audio
 * subsystem from the first frame of sound on, with the hint that leaves signals to the host, and the shared objects that it
 * loads where they are there (Pellwick.so with itself, Movarix.so in the first Corvane_Initial, plug-ins, Tessaro.so): no
 * signal handler, no locale, no environment, no working directory, no descriptor left open, and no output of its
 * own. Its threads block all signals but those of their own faults. Without memory an export returns
 * Status_OutOfMemory, and a thread of the library loses the picture at hand.
 *
 * COLOURS. By default all conversion to RGB is full-range BT.601, whatever the stream signals, so that a change of
 * renderer never changes the colours. A stream in limited range shows black as 16. (16 bits a pixel have a matrix of
 * their own: 74711 V, -38076 V - 25821 U, 133169 U in 1/65536.)
 * With option 1000 at 1 RGB is made, everywhere alike, by what the software decoder finds in the stream:
 *   signalled                     taken as
 *   BT.601 (BT.470BG, SMPTE 170M), BT.709, BT.2020 with non-constant luminance    that matrix
 *   another matrix, or none       BT.709 from 720 lines on, BT.601 below
 *   limited or full range         that range: Y from 16 to 235, U and V from 16 to 240; or 0 to 255
 *   no range                      limited; of JPEG full
 * Each sample of R, G and B is within 0.53 of the Recommendation's real number. Pictures of plug-ins and placeholders count
 * as full-range BT.601. Planar and packed YUV formats, and pictures that client filters get, keep the stream's samples; a
 * JPEG still is made full-range BT.601, as the JFIF standard has it. Two exceptions: H.265 of grey alone (4:0:0) in limited
 * range shows black as 16, and a still overlay is drawn into a still of PF_I420 in full-range BT.601.
 *
 * SOUND CODECS. A frame has `audioBlockCount` coded blocks of one size; what is left of a payload that is no multiple of
 * the count is dropped. A frame that breaks its row is lost, and no other.
 *   type     blocks                                                     samples
 *   G7221    60 bytes (24 kbit/s) or 80 (32 kbit/s), no other           320 a block, 16000 Hz, one channel
 *   G729A    at least 1; the payload is cut at every 10 bytes, fewer    80 a block, 8000 Hz, one channel; decoded as the
 *            at the end are dropped                                     main body of G.729, 17 to 29 dB from Annex A
 *   AAC      at least 1; low complexity, raw or with ADTS headers       1024 of each channel a block
 *            (blocks with headers may differ in size), at one of the
 *            13 rates of the standard and 1 to 6 or 8 channels, which
 *            the record must state; of a stream with spectral band
 *            replication the core, at the core's rate
 *   AMR      not counted; narrow band, each with its header byte        160 a block, 8000 Hz, one channel
 *   MULAW,   not counted                                                one a byte
 *   ALAW
 *   G726     not counted; codes go on across frames; `audioBitRate` is  one a code, 8000 Hz, one channel
 *            16000, 24000, 32000 or 40000
 *
 * DECODER CHANNELS. A decoder channel (Corvane_CreateDecoderChannel, also on an instance of flag 0x0001) decodes on the thread
 * of its caller and gives the result back: no queue, no window, no clock, no thread. One frame in, one result out:
 *   pull         Corvane_DecodeVideo and Corvane_DecodeAudio fill memory of the caller
 *   split pull   Corvane_DecodeVideoDecodeOnly decodes and tells how many bytes the picture takes;
 *                Corvane_GetDecodedVideoFrame makes it, in any format, as often as it is asked
 *   push         Corvane_InputToBeDecodedMediaFrame hands the result to the callback of DecoderChannelSettings or option 18
 * The frames are those of a live channel; times do not count. Decoding starts with a key frame. A decoder that holds pictures
 * back, for their order or for its threads, gives none for its first frames and one for each that follows: the n-th
 * picture has the record of the n-th frame. What it still holds when the channel is deleted is lost. Set *size to 0 before a call, and
 * it tells whether there was a picture. Options 6, 14 to 18, 22, 35, 46 to 48, 52, 53, 57 and 1000 count, and client filters
 * and Corvane_GetChannelStatistics work: a picture that was given out counts in picturesHandedOver, one that the next frame
 * overtakes in picturesReplaced, sound that was decoded in soundHeard.
 *   One call at a time: a call on a decoder channel that is inside another one, on another thread or from its own callback
 * or filter, returns Status_Failed and does nothing, and so do both deletes. Options, filters and the decode size may be
 * changed at any time, and count from the next output on. Different channels are independent.
 *
 * PLUG-INS. Decoders of hardware and of other vendors' streams come from shared objects of a folder that the client names
 * with Corvane_LoadDecoders, before it makes the channels that are to use them: a channel keeps what was found when it was
 * made.
 *   file in the folder               decoder for                               made where
 *   DecoderIsolated_CUVID.so         MPEG-4, H.264, H.265                      option 52, 46 or 53 is 1
 *   DecoderIsolated_DXVA2.so         H.264, H.265                              option 46 or 53 is 2
 *   DecoderIsolated_QuickSync.so     H.264, H.265                              option 46 or 53 is 3
 *   DecoderIsolated_Dahua.so         type H263 with the vendor tag DAHU        the stream is one
 *   DecoderIsolated_Hikvision.so     type H263 with the vendor tag HIKV        the stream is one
 * Each may be missing. Where there is none of the kind that was asked for, or it makes no decoder, software decodes; code 13
 * of the stream-info callback and the statistics say which one does. With CORVANE_FLAG_DECODER_FALLBACK a decoder that fails
 * on a key frame gives way to software, without it pictures are lost until it goes on. The libraries stay loaded
 * until Corvane_Release has ended the channels (that of Dahua until the process ends). docs/plugins.md says how to write one.
 *
 * RECORDING. An AVI channel writes AVI files, through a side library that is loaded by name, Movarix.so, in the first
 * Corvane_Initial of the process. Where it is missing, or lacks a function, the calls of this chapter return
 * Status_WrongChannelType and nothing else changes. The side library decides about files and compressors: most calls pass
 * their values on unread and return its status. movarix.h has the values that the Movarix.so of this package takes, and what a
 * Movarix.so of somebody else must have. To record what a camera sends:
 *
 *     MovarixStart start = {.recordSize = sizeof start, .path = "camera.avi"};
 *     Corvane_CreateAVIChannel(instance, &avi);
 *     Corvane_StartAVIChannel(avi, (uintptr_t)&start);
 *     ... Corvane_InputAVIMedia(avi, (uintptr_t)&header) for each frame, beside whatever else is done with it ...
 *     Corvane_StopAVIChannel(avi);
 *     Corvane_DeleteAVIChannel(instance, &avi);
 *
 * A live AVI channel (Corvane_CreateLiveAVIChannel) differs in how the side library takes times that jump. An exception of the
 * side library becomes Status_Failed. From inside a call of the side library its AVI channel is not deleted: Status_Failed.
 *
 * LOG. When this library is loaded it looks for Pellwick.so, in its own folder, LD_LIBRARY_PATH and the system's folders, and
 * sends its few log lines there: when a renderer failed and was replaced, and when a window cannot be drawn on. The one of
 * this package appends them to the file that the environment variable PELLWICK_FILE names when the process starts, with time
 * (UTC) and level, and does nothing without it. Without a Pellwick.so nothing is logged and nothing else changes.
 * corvane/pellwick.h says what another log library must have.
 *
 * Strict C99, C++ through extern "C". All records are little-endian with the natural alignment of a 64-bit build.
 */
#ifndef CORVANE_CORVANE_H
#define CORVANE_CORVANE_H

#include <stdint.h>
#include <time.h>

#include "corvane/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Value for `version` of Corvane_Initial: major in the low byte, minor in the next. */
#define CORVANE_VERSION 0x0505u

/* ---- Status words -------------------------------------------------------------------------------------------------- */

/* Success. */
#define Status_Ok ((uint32_t)0x00000000u)
/* Generic failure: a call refused from inside a callback, no picture, an unexpected error. */
#define Status_Failed ((uint32_t)0xFFFFFFFFu)
/* The handle stands for a kind of channel that this export does not accept. */
#define Status_WrongChannelType ((uint32_t)0x80000001u)
/* An allocation failed. Nothing was done; the call may be tried again. */
#define Status_OutOfMemory ((uint32_t)0x80000002u)
/* A required pointer is null or a value is not allowed. Correct the call. */
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

/*
 * Pixel formats. w is the width in pixels; the stride is in bytes. Other numbers do not exist. Colour planes of PF_I420,
 * PF_YV12 and PF_NV12 have h / 2 rows, rounded down. The second plane begins at stride x h and the third at stride x h x
 * 5 / 4, also where h is odd: half a colour row then lies unused between them. What a format cannot hold of an odd width
 * or height is not written: the last row and column in 24 and 32 bits and in PF_YUY2, PF_UYVY and PF_NV12 (there in NV12
 * only where the decoder gives three planes), and the colour of them in PF_I420 and PF_YV12.
 */
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

/*
 * Still formats: CORVANE_STILL_AS of the snapshots. Three of them are also the kinds of Corvane_RegisterRawDataCallback.
 * How the numbers of one format correspond; a BMP file has its bottom row first:
 *
 *   pixel format             still, rows without padding      still, BMP file                  kind of the picture callback
 *   PF_I420             1    CORVANE_PICTURE_I420     11                                       11
 *   PF_YUY2             3    CORVANE_PICTURE_YUY2      1
 *   PF_UYVY             4    CORVANE_PICTURE_UYVY     17
 *   PF_RGB555           5    CORVANE_PICTURE_RGB555    9      CORVANE_PICTURE_BMP_RGB555  10
 *   PF_RGB565           6    CORVANE_PICTURE_RGB565    2      CORVANE_PICTURE_BMP_RGB565   5
 *   PF_BGR24            7    CORVANE_PICTURE_BGR24     3                                       3, bottomUp 0
 *   PF_BGR24_FLIP       8                                     CORVANE_PICTURE_BMP_BGR24    6   3, bottomUp 1
 *   PF_BGRA32           9    CORVANE_PICTURE_BGRA32    4                                       4, bottomUp 0
 *   PF_BGR555          12    CORVANE_PICTURE_BGR555   15
 *   PF_BGR565          13    CORVANE_PICTURE_BGR565   12
 *   PF_RGB24           14    CORVANE_PICTURE_RGB24    13
 *   PF_RGBA32          15    CORVANE_PICTURE_RGBA32   14
 *   PF_YV12            16    CORVANE_PICTURE_YV12     16
 *   PF_BGRA32_FLIP     17                                     CORVANE_PICTURE_BMP_BGRA32   7   4, bottomUp 1
 *   PF_NV12    0x3231564E    CORVANE_PICTURE_NV12     18
 */
enum {
    CORVANE_PICTURE_YUY2 = 1,
    CORVANE_PICTURE_RGB565 = 2,
    CORVANE_PICTURE_BGR24 = 3,            /* also a kind of the picture callback */
    CORVANE_PICTURE_BGRA32 = 4,           /* also a kind of the picture callback */
    CORVANE_PICTURE_BMP_RGB565 = 5,
    CORVANE_PICTURE_BMP_BGR24 = 6,
    CORVANE_PICTURE_BMP_BGRA32 = 7,
    CORVANE_PICTURE_JPEG = 8,             /* a JPEG file, quality by option 17 */
    CORVANE_PICTURE_RGB555 = 9,
    CORVANE_PICTURE_BMP_RGB555 = 10,
    CORVANE_PICTURE_I420 = 11,            /* also a kind of the picture callback */
    CORVANE_PICTURE_BGR565 = 12,
    CORVANE_PICTURE_RGB24 = 13,
    CORVANE_PICTURE_RGBA32 = 14,
    CORVANE_PICTURE_BGR555 = 15,
    CORVANE_PICTURE_YV12 = 16,
    CORVANE_PICTURE_UYVY = 17,
    CORVANE_PICTURE_NV12 = 18
};

/* `flags` of the snapshots, see Corvane_GetCurrentSnapShot. */
enum {
    CORVANE_STILL_WINDOW = 0,             /* what the window shows */
    CORVANE_STILL_BMP24 = 0x1,            /* as CORVANE_STILL_FORMAT with CORVANE_PICTURE_BMP_BGR24 */
    CORVANE_STILL_ENCODED = 0x2,          /* the encoded payload */
    CORVANE_STILL_FORMAT = 0x4,           /* the decoded picture; its still format stands in bits 16 to 31 */
    CORVANE_STILL_CALLERS_BUFFER = 0x8    /* together with one of the above: the memory is the caller's */
};
/* CORVANE_STILL_FORMAT with a format of CORVANE_PICTURE_*. */
#define CORVANE_STILL_AS(picture) ((uint32_t)CORVANE_STILL_FORMAT | (uint32_t)(picture) << 16)

/* `streamType` of MediaFrameHeader. */
enum {
    CORVANE_STREAM_JPEG = 1,
    CORVANE_STREAM_H263 = 2,             /* H.263 up to 704x576; with the vendor tags DAHU and HIKV their own streams */
    CORVANE_STREAM_MPEG4 = 4,
    CORVANE_STREAM_H264 = 8,
    CORVANE_STREAM_H265 = 16,
    CORVANE_STREAM_PLACEHOLDER = 255,
    CORVANE_STREAM_G7221 = 256,          /* sound: see SOUND CODECS */
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
    CORVANE_FLAG_GDI_COMPOSE = 0x0008,    /* plain rendering composes in memory: text may lie on the picture,
                                             and is drawn for each one */
    CORVANE_FLAG_GDI_STRETCH = 0x0010,    /* plain window rendering, as 0x0002 */
    CORVANE_FLAG_GDI_LEGACY = 0x0100,     /* plain window rendering, as 0x0002 */
    CORVANE_FLAG_DECODER_FALLBACK = 0x2000 /* a failing hardware decoder may be replaced by software */
};

/* Options of Corvane_SetChannelOption. Numbers from 1000 on are this library's own. */
enum {
    CORVANE_OPTION_BORDER = 3,
    CORVANE_OPTION_RAW_PREFIX = 6,
    CORVANE_OPTION_MARGIN_LEFT = 7,
    CORVANE_OPTION_MARGIN_RIGHT = 8,
    CORVANE_OPTION_MARGIN_TOP = 9,
    CORVANE_OPTION_MARGIN_BOTTOM = 10,
    CORVANE_OPTION_DISPLAY_AREA = 11,
    CORVANE_OPTION_MEDIA_MODE = 13,       /* value: of CORVANE_MEDIA_* */
    CORVANE_OPTION_RAW_PICTURES = 14,
    CORVANE_OPTION_RAW_SOUND = 15,
    CORVANE_OPTION_RAW_FORMAT = 16,       /* value: of CORVANE_PICTURE_* */
    CORVANE_OPTION_JPEG_QUALITY = 17,
    CORVANE_OPTION_RAW_CALLBACK = 18,
    CORVANE_OPTION_RAW_CALLBACK_2 = 22,
    CORVANE_OPTION_LOGO_FILE = 25,
    CORVANE_OPTION_LOGO = 26,
    CORVANE_OPTION_EMPTY_QUEUE = 31,
    CORVANE_OPTION_SMOOTHING = 35,
    CORVANE_OPTION_FULL_QUEUE = 42,
    CORVANE_OPTION_TEXT_POLICY = 45,      /* value: of CORVANE_TEXT_* */
    CORVANE_OPTION_H264_DECODER = 46,
    CORVANE_OPTION_NO_EFFECT = 47,
    CORVANE_OPTION_DECODER_THREADS = 48,
    CORVANE_OPTION_MPEG4_DECODER = 52,
    CORVANE_OPTION_H265_DECODER = 53,
    CORVANE_OPTION_BACKWARD_MEMORY = 55,
    CORVANE_OPTION_STILL_OVERLAY = 56,
    CORVANE_OPTION_RESIZE_KIND = 57,
    CORVANE_OPTION_COLOURS = 1000         /* value: of CORVANE_COLOURS_* */
};

/* By which colours RGB is made, option 1000: see COLOURS above. */
enum {
    CORVANE_COLOURS_PLAIN = 0,            /* full-range BT.601 */
    CORVANE_COLOURS_SIGNALLED = 1         /* what the stream signals */
};

/* Media modes of option 13 and of ChannelUpdate. */
enum {
    CORVANE_MEDIA_VIDEO = 1,
    CORVANE_MEDIA_AUDIO = 2,
    CORVANE_MEDIA_BOTH = 3
};

/* Modes of Corvane_SetDisplayMode. */
enum {
    CORVANE_DISPLAY_ALL = 0,              /* every frame is decoded */
    CORVANE_DISPLAY_KEY_FRAMES = 1,       /* key frames only */
    CORVANE_DISPLAY_THIN_LEAST = 2,       /* this to CORVANE_DISPLAY_THIN_MOST: leaves out H.264 temporal layers, ... */
    CORVANE_DISPLAY_THIN_MOST = 8         /* ... here all of them; of streams whose slices have start codes of 4 bytes */
};

/* Resize kinds of option 57. */
enum {
    CORVANE_RESIZE_NEAREST = 0,
    CORVANE_RESIZE_BILINEAR = 1,
    CORVANE_RESIZE_BICUBIC = 2,
    CORVANE_RESIZE_LANCZOS = 3
};

/* Fields of DisplayArea that option 11 takes over: bits of its `extra`. */
enum {
    CORVANE_AREA_OVERVIEW = 1,
    CORVANE_AREA_OVERVIEW_MARGIN = 2,
    CORVANE_AREA_ZOOM = 4,
    CORVANE_AREA_ZOOM_MARGIN = 8,
    CORVANE_AREA_ZOOM_ENABLED = 16,
    CORVANE_AREA_OVERVIEW_ENABLED = 32
};

/* `state` of QueueState. */
enum {
    CORVANE_QUEUE_BUFFERING = 1,
    CORVANE_QUEUE_PLAYING = 2             /* frames leave the queue */
};

/* Bits of `options` of Corvane_StartChannel. */
enum {
    CORVANE_START_WAITING = 1             /* the waiting state takes the place of the last picture */
};

/* Bits of option 45: the changes that call the on-screen-text callback. A redraw always calls it. */
enum {
    CORVANE_TEXT_WALL_CLOCK = 1,       /* its second; no effect with the default renderer */
    CORVANE_TEXT_FRAME = 2,            /* the second of the frame's timeSeconds */
    CORVANE_TEXT_PRESENT_TIME = 4,     /* of its presentation time */
    CORVANE_TEXT_BASE_TIME = 8         /* of its base time */
};
#define CORVANE_TEXT_ALWAYS 0x80000000u /* alone: with every picture */

/* Codes of the stream-info callback, see there. */
enum {
    CORVANE_INFO_SIZE = 3,
    CORVANE_INFO_MOTION = 6,
    CORVANE_INFO_FRAME = 7,
    CORVANE_INFO_FRESH = 8,
    CORVANE_INFO_FALLBACK = 9,
    CORVANE_INFO_LENS_KIND = 10,
    CORVANE_INFO_MOUNT = 11,
    CORVANE_INFO_LENS_CIRCLE = 12,
    CORVANE_INFO_DECODER = 13
};

/* Codes of the raw callback. */
enum {
    CORVANE_RAW_PICTURE = 1,              /* the record is a RawPictureInfo */
    CORVANE_RAW_SOUND = 2                 /* the record is a RawAudioInfo */
};

/* Bits of ChannelSettings::mask. */
enum {
    CORVANE_SETTINGS_STREAM_INFO = 0x0001,
    CORVANE_SETTINGS_TEXT = 0x0002,
    CORVANE_SETTINGS_STREAM_INFO_CONTEXT = 0x0004,
    CORVANE_SETTINGS_TEXT_CONTEXT = 0x0008,
    CORVANE_SETTINGS_VOLUME = 0x0010,
    CORVANE_SETTINGS_MARGIN_LEFT = 0x0020,
    CORVANE_SETTINGS_MARGIN_RIGHT = 0x0040,
    CORVANE_SETTINGS_MARGIN_TOP = 0x0080,
    CORVANE_SETTINGS_MARGIN_BOTTOM = 0x0100,
    CORVANE_SETTINGS_LOGO = 0x0200,
    CORVANE_SETTINGS_MOTION = 0x0400,
    CORVANE_SETTINGS_MOTION_COLOR = 0x0800,
    CORVANE_SETTINGS_ALERT_COLOR = 0x1000,
    CORVANE_SETTINGS_PRESENT = 0x2000,
    CORVANE_SETTINGS_AUDIO = 0x4000
};

/* Bits of ChannelUpdate::mask. */
enum {
    CORVANE_UPDATE_PRESENT = 0x0001,
    CORVANE_UPDATE_AUDIO = 0x0002,
    CORVANE_UPDATE_MOTION = 0x0004,
    CORVANE_UPDATE_MOTION_COLOR = 0x0008,
    CORVANE_UPDATE_ALERT_COLOR = 0x0010,
    CORVANE_UPDATE_VOLUME = 0x0020,
    CORVANE_UPDATE_MEDIA_MODE = 0x0040,
    CORVANE_UPDATE_DROP_PICTURE = 0x0400,
    CORVANE_UPDATE_WINDOW = 0x0800,
    CORVANE_UPDATE_NO_WINDOW = 0x1000,
    CORVANE_UPDATE_FULL_WINDOW = 0x2000
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
 *
 * A frame of video holds one picture; H.264 and H.265 in Annex B form. Parameter sets may also come in frames of their
 * own, and so may the two fields of an H.264 picture: the first frames wait for the last. The record of a picture is that
 * of its own frame, not that of parameter sets in front of it; of two fields it is the record of the first.
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

/* ---- Callbacks ----------------------------------------------------------------------------------------------------- */

/*
 * Stream info, on the channel's worker thread. Codes of this version:
 *   code  a                     b                                 when
 *   3     width                 height                            size known or changed, pixels
 *   6     MotionEntry pointer   entries                           every frame
 *   7     1 or 0                MediaFrameHeader pointer          every frame; 1: the upper half of reservedTail is 0
 *   8     0                     0                                 fresh information: after a start, stop, rotation
 *   9     2                     0                                 once: the default renderer gave way to the plain one
 *   10    1, 2 or 3             0                                 lens kind 0, 1 or 2 of a round picture
 *   11    2 or 1                0                                 mount flag set or clear
 *   12    1                     FisheyeInfo pointer               lens circle changed
 *   12    0                     0                                 the stream carries no lens circle (any more)
 *   13    hardware kind         0                                 the decoder changed: 0 software, 1 to 3 hardware
 */
typedef void (*CorvaneStreamInfoCallback)(void* context, uint32_t code, uint64_t a, uint64_t b);

/* One entry of code 6, 8 bytes. */
typedef struct MotionEntry {
    uint16_t id;          /* window identifier, or level of an object record */
    uint16_t reserved2;
    uint32_t value;       /* alarm word of the window, or value of the record */
} MotionEntry;

/* What code 12 points at, 8 bytes. Centre and radius in capture pixels. */
typedef struct FisheyeInfo {
    uint8_t mountFlag;
    uint8_t lensKind;
    uint16_t centerX;
    uint16_t centerY;
    uint16_t radius;
} FisheyeInfo;

/* `flags` of OsdInfo. */
enum {
    CORVANE_OSD_BORDER = 0x01,     /* the fixed border is in use; width and height include it */
    CORVANE_OSD_WAITING = 0x02,    /* no picture since the start; called every 500 ms */
    CORVANE_OSD_STOPPED = 0x04,
    CORVANE_OSD_AUDIO_ONLY = 0x08,
    CORVANE_OSD_FRESH = 0x20,      /* first text since fresh information, or stopped */
    CORVANE_OSD_TIME_ONLY = 0x80
};

struct _cairo;

/* What the on-screen-text callback gets, 208 bytes. Everything belongs to the library and is valid during the call. */
typedef struct OsdInfo {
    struct _cairo* deviceContext;    /*   0 cairo_t (cairo.h), clipped to width x height; raw pixels by cairo_get_target */
    void* reserved8;                 /*   8 */
    uint32_t width;                  /*  16 pixels that may be drawn on: the inside of the window, or picture and border */
    uint32_t height;                 /*  20 */
    const struct tm* time;           /*  24 the frame's timeSeconds in UTC; local wall clock while waiting or time only */
    uint32_t counter;                /*  32 0 to 9 in turn while waiting, else 0 */
    uint32_t flags;                  /*  36 of CORVANE_OSD_* */
    uint32_t timeSeconds;            /*  40 the seconds since 1970 UTC that `time` was made from */
    uint32_t reserved44[32];         /*  44 */
    FrameTimeRecord presentTime;     /* 172 this and what follows: of the frame, 0 where there is none */
    FrameTimeRecord baseTime;        /* 184 */
    uint32_t streamSeconds;          /* 196 */
    uint32_t timeMilliseconds;       /* 200 */
    uint16_t timeZone;               /* 204 as in FrameTimeRecord */
    uint16_t daylight;               /* 206 low 16 bits of the frame's daylight */
} OsdInfo;

/*
 * On-screen text, on the render thread: the client draws on the window, over the picture, or with the plain renderer on
 * the picture's margins. Option 45 chooses when the callback is called; the text stays until the next call. A playing
 * channel without a window calls it too, with the size of the picture, unless the channel has the plain renderer.
 */
typedef void (*CorvaneOsdCallback)(void* context, OsdInfo* info);

/* What the picture callback gets, 64 bytes. */
typedef struct PseudoFrame {
    uint32_t flags;                  /*  0 0x20 first picture since fresh information; 8 sound only, no picture */
    uint32_t reserved4;              /*  4 */
    const struct tm* time;           /*  8 timeSeconds broken down in UTC */
    uint32_t seconds;                /* 16 presentation time where the frame gives one, else its base time */
    uint32_t milliseconds;           /* 20 */
    uint32_t timeSeconds;            /* 24 wall-clock time of the frame, seconds since 1970 UTC */
    uint16_t timeZone;               /* 28 as in FrameTimeRecord */
    uint16_t daylight;               /* 30 */
    uint32_t width;                  /* 32 pixels; 0 when there is no picture */
    uint32_t height;                 /* 36 */
    const uint8_t* data;             /* 40 first row in memory; row bytes follow from the format and width, see PF_* */
    uint32_t size;                   /* 48 bytes at data */
    uint32_t reserved52;             /* 52 */
    const MediaFrameHeader* header;  /* 56 the frame */
} PseudoFrame;

/* A finished picture, on the render thread. The picture belongs to the library and is overwritten after the return. */
typedef void (*CorvanePictureCallback)(void* context, const PseudoFrame* frame);

/* A raw picture, 240 bytes. */
typedef struct RawPictureInfo {
    uint32_t width;            /*   0 pixels */
    uint32_t height;           /*   4 */
    uint32_t size;             /*   8 bytes at buffer, with the prefix */
    uint32_t reserved12;       /*  12 */
    const uint8_t* pixels;     /*  16 the picture in its format: buffer + prefix */
    const uint8_t* buffer;     /*  24 starts with `prefix` bytes of 0 */
    uint32_t prefix;           /*  32 of option 6 */
    uint32_t reserved36;       /*  36 */
    uint8_t header[120];       /*  40 the first 120 bytes of the frame's MediaFrameHeader; its `data` is valid too */
    uint32_t count;            /* 160 1 in the first call for a picture, and 1 more in each repetition */
    uint32_t format;           /* 164 of CORVANE_PICTURE_* */
    uint32_t requestedFormat;  /* 168 in: as format; out: of the repetition */
    uint32_t repeat;           /* 172 out: not 0: the same picture again, in requestedFormat */
    uint8_t reserved176[64];   /* 176 */
} RawPictureInfo;

/* Raw sound, 240 bytes. */
typedef struct RawAudioInfo {
    uint32_t duration;         /*   0 of the frame, milliseconds; 0: not known */
    uint32_t size;             /*   4 bytes at samples */
    const uint8_t* samples;    /*   8 signed, 16 bits, little-endian, channels interleaved; full volume */
    uint32_t timeSeconds;      /*  16 of the frame */
    uint32_t timeMilliseconds; /*  20 */
    uint8_t header[120];       /*  24 the first 120 bytes of the frame's MediaFrameHeader: rate, channels; its `data` is valid too */
    uint8_t reserved144[96];   /* 144 */
} RawAudioInfo;

/*
 * Options 18 and 22. Pointers in a record are valid until the callback returns.
 * CORVANE_RAW_PICTURE, with a RawPictureInfo: the picture as decoded, of its own size, after smoothing, dewarping and
 * client filters, once for each picture that the render thread has presented. Rotation, text and window do not count. On
 * the render thread: while the callback runs, newer pictures replace each other, on the display too, and decoding goes on.
 * While a client asks for repetitions the display stands, and calls that wait for the render thread's callbacks wait.
 * Repetitions end when the channel stops, is deleted or gets another raw callback.
 * CORVANE_RAW_SOUND, with a RawAudioInfo: the samples of each frame before they are played, on the thread of the channel's
 * sound device. There is none where no sound is played.
 * The two never run at the same time for one channel; a callback that takes long makes the other one wait, and sound
 * stutters. After Corvane_StopChannel has returned neither runs.
 * A decoder channel calls it inside Corvane_InputToBeDecodedMediaFrame with the same records: the picture in the format of
 * option 16 and the size of Corvane_SetDecodeSize, or the samples. An exception of it becomes Status_Failed. Only a callback of
 * option 22 may ask for repetitions there.
 */
typedef void (*CorvaneRawCallback)(void* context, uint32_t code, void* record);

/* What the after-display callback gets, 40 bytes. */
typedef struct AfterDisplayRecord {
    uint32_t reserved0;
    uint32_t reserved4;
    const MediaFrameHeader* header;
    FrameTimeRecord presentTime;
    FrameTimeRecord baseTime;
} AfterDisplayRecord;

/*
 * Called on the render thread after each pass of presenting, of a new picture or a redraw, also where nothing was put on
 * a window. Not called after a pass in which the renderer failed.
 */
typedef void (*CorvaneAfterDisplayCallback)(void* context, const AfterDisplayRecord* record);

/* ---- Records of the calls ------------------------------------------------------------------------------------------ */

/* How a channel is created, 136 bytes. A field counts when its mask bit is set; those without a bit always count. */
typedef struct ChannelSettings {
    uint32_t mask;                        /*   0 of CORVANE_SETTINGS_* */
    uint32_t reserved4;                   /*   4 */
    CorvaneStreamInfoCallback streamInfo; /*   8 0x0001; else the instance's */
    CorvaneOsdCallback osd;               /*  16 0x0002; else the instance's */
    void* streamInfoContext;              /*  24 0x0004 */
    void* osdContext;                     /*  32 0x0008 */
    uint32_t volume;                      /*  40 0x0010 0 to 5000, default 5000; beyond, as a signed number, the nearest */
    uint32_t marginLeft;                  /*  44 0x0020 pixels around the picture in its window */
    uint32_t marginRight;                 /*  48 0x0040 */
    uint32_t marginTop;                   /*  52 0x0080 */
    uint32_t marginBottom;                /*  56 0x0100 */
    uint32_t reserved60;                  /*  60 */
    uint64_t logo;                        /*  64 0x0200 cairo_surface_t* of an image, copied, as option 26 */
    uint64_t reserved72;                  /*  72 */
    uintptr_t window;                     /*  80 X11 window, or 0: all but the window works */
    uint32_t reserved88;                  /*  88 */
    uint32_t presentEnabled;              /*  92 0x2000 zero: pictures are decoded and not presented */
    uint32_t audioEnabled;                /*  96 0x4000 zero: no sound; default non-zero */
    uint32_t motionEnabled;               /* 100 0x0400 not read in this version, as the two colours */
    uint32_t alertColor;                  /* 104 0x1000 */
    uint32_t motionColor;                 /* 108 0x0800 */
    uint32_t hasBorder;                   /* 112 non-zero: border counts */
    uint32_t border[4];                   /* 116 left, top, right, bottom, pixels */
    uint32_t reserved132;                 /* 132 */
} ChannelSettings;

/* Changes of a channel, 48 bytes. */
typedef struct ChannelUpdate {
    uint32_t mask;            /*  0 of CORVANE_UPDATE_*; 0x0400 drops the picture, 0x1000 gives the window up */
    uint32_t presentEnabled;  /*  4 0x0001 */
    uint32_t audioEnabled;    /*  8 0x0002 zero: silent at once, and the sound device closes */
    uint32_t motionEnabled;   /* 12 0x0004 not read in this version, as the two colours */
    uint32_t fullWindow;      /* 16 0x2000 margins and text are ignored */
    uint32_t alertColor;      /* 20 0x0010 */
    uint32_t motionColor;     /* 24 0x0008 */
    uint32_t volume;          /* 28 0x0020 0 to 5000; beyond, as a signed number, the nearest of them */
    uint32_t mediaMode;       /* 32 0x0040 of CORVANE_MEDIA_* */
    uint32_t reserved36;      /* 36 */
    uintptr_t window;         /* 40 0x0800 must not be 0 */
} ChannelUpdate;

/* How a decoder channel is created, 24 bytes. */
typedef struct DecoderChannelSettings {
    CorvaneRawCallback callback;   /*  0 for Corvane_InputToBeDecodedMediaFrame; may be null */
    void* context;                 /*  8 */
    uint32_t format;               /* 16 of pictures, of CORVANE_PICTURE_* */
    uint32_t quality;              /* 20 of JPEG pictures, as option 17 */
} DecoderChannelSettings;

/* A picture that was decoded into memory of the caller, 160 bytes. */
typedef struct DecodedVideoInfo {
    uint32_t width;            /*   0 out: pixels */
    uint32_t height;           /*   4 out */
    uint32_t capacity;         /*   8 in: bytes at buffer */
    uint32_t reserved12;       /*  12 */
    uint8_t* pixels;           /*  16 out: the picture in its format: buffer + prefix */
    uint8_t* buffer;           /*  24 in: gets `prefix` bytes of 0 and the picture */
    uint32_t prefix;           /*  32 out: bytes before pixels */
    uint32_t reserved36;       /*  36 */
    uint8_t header[112];       /*  40 out: the first 112 bytes of the MediaFrameHeader of the frame that the picture is of */
    uint64_t headerTail;       /* 152 out: the next 8 bytes of it */
} DecodedVideoInfo;

/* Sound that was decoded into memory of the caller, 144 bytes. */
typedef struct DecodedAudioInfo {
    uint32_t duration;         /*   0 out: of the frame, milliseconds; 0: not known */
    uint32_t capacity;         /*   4 in: bytes at pcm */
    uint8_t* pcm;              /*   8 in: gets the samples: signed, 16 bits, little-endian, channels interleaved */
    uint32_t timeSeconds;      /*  16 out: of the frame */
    uint32_t timeMilliseconds; /*  20 out */
    uint8_t header[112];       /*  24 out: the first 112 bytes of the frame's MediaFrameHeader */
    uint64_t headerTail;       /* 136 out: the next 8 bytes of it */
} DecodedAudioInfo;

/* Pixels, 8 bytes. */
typedef struct DecodedPictureSize {
    uint32_t width;
    uint32_t height;
} DecodedPictureSize;

/* State of a channel's queue, 16 bytes. */
typedef struct QueueState {
    uint32_t reserved[3];
    uint32_t state;           /* of CORVANE_QUEUE_* */
} QueueState;

/* `lastCause` of ChannelStatistics: why a frame brought no picture. */
enum {
    CORVANE_CAUSE_NONE = 0,               /* every frame so far brought one, or is in progress */
    /* At the call and in the queue. */
    CORVANE_CAUSE_QUEUE_FULL = 1,
    CORVANE_CAUSE_MEDIA_MODE = 2,         /* option 13 excludes its class */
    CORVANE_CAUSE_TIMES_DO_NOT_RISE = 3,  /* it waits in a queue that buffers, to which its time added nothing */
    CORVANE_CAUSE_EMPTIED = 4,            /* it waited when the channel was stopped, or the queue emptied by option 31 */
    CORVANE_CAUSE_LATE = 5,               /* dropped from the queue, since decoding or presenting was late */
    CORVANE_CAUSE_THINNED = 6,            /* left out by Corvane_SetDisplayMode */
    CORVANE_CAUSE_OUT_OF_MEMORY = 7,      /* or an exception of a client's callback on the worker */
    /* In the decoder. */
    CORVANE_CAUSE_NO_DECODER = 8,         /* none for its type or vendor, or it could not be made */
    CORVANE_CAUSE_NO_KEY_FRAME = 9,       /* no key frame has come since the start, a loss or a change of size */
    CORVANE_CAUSE_NO_START_CODE = 10,     /* no start code, but lengths, as in containers */
    CORVANE_CAUSE_WRONG_TYPE = 11,        /* the payload is of another type than streamType says */
    CORVANE_CAUSE_DAMAGED = 12,           /* the decoder could not read it */
    CORVANE_CAUSE_SIZE = 13,              /* it announces a picture larger than the library takes */
    CORVANE_CAUSE_DECODER_STUCK = 14,     /* the decoder stopped answering and was dropped; a key frame brings another */
    CORVANE_CAUSE_HELD_BACK = 15,         /* its picture comes with a later frame, or it is not a whole picture */
    CORVANE_CAUSE_NO_PICTURE = 16,        /* the decoder accepted it and gave no picture */
    /* After the decoder. */
    CORVANE_CAUSE_NOT_FOR_DISPLAY = 17,   /* the stream says so */
    CORVANE_CAUSE_NO_BUFFER = 18,         /* no renderer had room for the picture, or no memory */
    CORVANE_CAUSE_NOT_ROTATABLE = 19,     /* the picture callback's format cannot be rotated */
    CORVANE_CAUSE_REPLACED = 20,          /* a newer picture, or the end of playing, came before it was shown */
    CORVANE_CAUSE_BUSY = 21,              /* the X server had not read the picture before, or the window kept changing */
    CORVANE_CAUSE_NO_WINDOW = 22,         /* there is neither a window nor a picture callback */
    CORVANE_CAUSE_HIDDEN = 23,            /* the window cannot be drawn on: not mapped, destroyed, too large, all margin */
    CORVANE_CAUSE_OFF = 24,               /* presenting is off, or the picture callback is null */
    CORVANE_CAUSE_RENDERER_FAILED = 25    /* the renderer could not go on and was replaced */
};

/*
 * What became of the frames of a channel since it was created, 328 bytes; later versions append. Counters never fall.
 *
 * They add up. Every frame that was taken ends once:
 *   framesTaken = queueFrames + framesEmptied + framesSkippedLate + framesThinned + metadataFrames + soundFrames
 *               + unitsWithoutDecoder + unitsAwaitingKeyFrame + unitsFailed + unitsWithoutPicture + picturesDecoded
 * but for one that the worker has in hand, and every decoded picture likewise:
 *   picturesDecoded = picturesNotForDisplay + picturesLost + picturesReplaced + picturesTaken
 * but for one that waits for the render thread, and
 *   picturesTaken = picturesPut + picturesHandedOver + picturesNotPutBusy + picturesNotPutNowhere + picturesNotPutOff
 * but for the latest, as long as it may still be put. A picture counts as put however often it is drawn anew. Of sound
 *   soundFrames = soundHeard + soundLostRing + soundLostDecoder + soundNotPlayed
 * but for the frames that wait for the sound device.
 */
typedef struct ChannelStatistics {
    uint32_t recordSize;               /*   0 in: bytes of the client's record, of which no more are written; at least 4.
                                              out: bytes that were written */
    uint32_t lastCause;                /*   4 of CORVANE_CAUSE_* */
    uint32_t decoderKind;              /*   8 0 software, 1 to 3 hardware, as code 13 of the stream info */
    uint32_t decoderThreads;           /*  12 threads of the decoder in use; 0: there is none */
    uint64_t lastCauseAgo;             /*  16 milliseconds since lastCause; 0 with CORVANE_CAUSE_NONE */
    /* Frames, at the call and in the queue. */
    uint64_t framesTaken;              /*  24 Status_Ok of Corvane_InputEncodedMediaFrame */
    uint64_t framesRefusedFull;        /*  32 Status_QueueFull */
    uint64_t framesRefusedMode;        /*  40 Status_UnsupportedMedia by option 13 */
    uint64_t framesWithoutStep;        /*  48 taken, with a time that did not rise, or rose by 11 s or more; not the first */
    uint64_t framesEmptied;            /*  56 waited at a stop, or when option 31 emptied the queue */
    uint64_t framesSkippedLate;        /*  64 of all classes */
    uint64_t framesThinned;            /*  72 left out by Corvane_SetDisplayMode */
    uint64_t metadataFrames;           /*  80 left the queue; this version reads none */
    uint64_t soundFrames;              /*  88 left the queue */
    /* Frames of video in the decoder. */
    uint64_t unitsWithoutDecoder;      /*  96 */
    uint64_t unitsAwaitingKeyFrame;    /* 104 */
    uint64_t unitsFailed;              /* 112 not decodable, whatever the cause */
    uint64_t unitsWithoutPicture;      /* 120 decoded or kept, and no picture came with this frame */
    /* Pictures. */
    uint64_t picturesDecoded;          /* 128 */
    uint64_t picturesNotForDisplay;    /* 136 */
    uint64_t picturesSmoothed;         /* 144 interlaced, option 35 */
    uint64_t picturesRefusedSmoothing; /* 152 asked for, and too small for it, or no memory: shown as it was filled in */
    uint64_t picturesLost;             /* 160 no renderer took them */
    uint64_t picturesReplaced;         /* 168 before the render thread took them */
    uint64_t picturesTaken;            /* 176 by the render thread */
    uint64_t picturesPut;              /* 184 on a window */
    uint64_t picturesHandedOver;       /* 192 to the picture callback; to the client of a decoder channel */
    uint64_t picturesNotPutBusy;       /* 200 the X server was not ready until the next picture came */
    uint64_t picturesNotPutNowhere;    /* 208 no window, or none that can be drawn on */
    uint64_t picturesNotPutOff;        /* 216 presenting is off */
    /* Now. */
    uint64_t queueFrames;              /* 224 */
    uint64_t queueBytes;               /* 232 of memory that they hold */
    uint64_t queueMilliseconds;        /* 240 of play, of the longer of video and sound */
    uint64_t ageLast;                  /* 248 of the picture shown last: milliseconds from the call that took its frame
                                              until it was put on a window, or handed to the callback; 0 before the first */
    uint64_t ageMean;                  /* 256 of the last 256 pictures shown, or as many as there were */
    uint64_t age95;                    /* 264 which 95 of 100 of those do not exceed */
    uint64_t reserved[3];              /* 272 written as 0 */
    /* Frames of sound. */
    uint64_t soundHeard;               /* 296 decoded and played, at whatever volume; decoder channel: decoded */
    uint64_t soundLostRing;            /* 304 43 frames waited already: they come faster than the device plays */
    uint64_t soundLostDecoder;         /* 312 no decoder for them, or not decodable: 1024 bytes of silence for each */
    uint64_t soundNotPlayed;           /* 320 no device (none, all 15 in use, not yet open, a format beyond its bounds),
                                              sound is off, not for display, or the channel stopped first */
} ChannelStatistics;

/* A rectangle (left, top, right, bottom, screen pixels) or a window. */
typedef union DisplayPlace {
    int32_t rectangle[4];
    uint64_t window;
} DisplayPlace;

/* A picture in memory, 24 bytes. */
typedef struct PictureBuffer {
    uint32_t size;            /*  0 in: bytes at a caller's data; out: bytes of the picture */
    uint32_t width;           /*  4 out: pixels */
    uint32_t height;          /*  8 */
    uint32_t reserved12;      /* 12 */
    uint8_t* data;            /* 16 */
} PictureBuffer;

/* What a display call reports about its picture, 48 bytes. */
typedef struct DisplayFrameInfo {
    uint32_t clientWidth;        /*  0 out: inside of the channel's window in pixels; without one, size of the surface */
    uint32_t clientHeight;       /*  4 */
    uint32_t timeSeconds;        /*  8 out: of the frame */
    uint32_t flags;              /* 12 bit 7 is set for a placeholder frame; nothing else is changed */
    FrameTimeRecord presentTime; /* 16 out: of the frame */
    FrameTimeRecord baseTime;    /* 28 */
    uintptr_t viewerWindow;      /* 40 not read in this version */
} DisplayFrameInfo;

/* Display rectangles, option 11, 88 bytes. `extra` of the option is of CORVANE_AREA_*: the fields that count. */
typedef struct DisplayArea {
    uint32_t overviewIsWindow;   /*  0 bit 1, with overview */
    uint32_t reserved4;          /*  4 */
    DisplayPlace overview;       /*  8 the area that stands for the whole picture */
    int32_t overviewMargin[4];   /* 24 bit 2: left, top, right, bottom insets */
    uint32_t zoomIsWindow;       /* 40 bit 4, with zoom */
    uint32_t reserved44;         /* 44 */
    DisplayPlace zoom;           /* 48 the selected part */
    int32_t zoomMargin[4];       /* 64 bit 8 */
    uint32_t zoomEnabled;        /* 80 bit 16: the window shows the selection only */
    uint32_t overviewEnabled;    /* 84 bit 32: the whole picture is also drawn into the overview area */
} DisplayArea;

/* ---- Instance ------------------------------------------------------------------------------------------------------ */

/*
 * Makes an instance. `streamInfo` and `osd` are the defaults of its channels, may be null. `audioWindow` and
 * `audioFocusMode` are kept and change nothing: no sound system here knows a focus window. `reserved` is
 * ignored. `version` is CORVANE_VERSION of the client's build: the low byte must be 5, the next at most 5. `flags` is of
 * CORVANE_FLAG_*.
 * On success *instance belongs to the caller, to be ended by Corvane_Release. On failure *instance is unchanged.
 * Status_InvalidArgument: instance is null, or flags has both 0x0002 and 0x0004. Status_VersionMismatch (tested
 * before the flags). Status_OutOfMemory. Does not block. [any]
 */
CORVANE_API uint32_t Corvane_Initial(void** instance, CorvaneStreamInfoCallback streamInfo, CorvaneOsdCallback osd,
                                     uintptr_t audioWindow, uint32_t audioFocusMode, uint32_t reserved, uint32_t version,
                                     uint32_t flags);

/* As Corvane_Initial; `background` is the fill colour 0x00BBGGRR of margins and empty windows. [any] */
CORVANE_API uint32_t Corvane_InitialEx(void** instance, CorvaneStreamInfoCallback streamInfo, CorvaneOsdCallback osd,
                                       uintptr_t audioWindow, uint32_t audioFocusMode, uint32_t reserved, uint32_t version,
                                       uint32_t flags, uint32_t background);

/*
 * Ends *instance with every channel still on it and sets *instance to null; a null *instance is no error. Handles of those
 * channels are then invalid. AVI channels end first, in the order of their handles, then the side library's part of the
 * instance, then all other channels, then decoder plug-ins are unloaded.
 * Status_InvalidArgument: instance is null, or *instance the handle of a channel; nothing was done. Status_Failed, and
 * nothing was done: called from a callback of one of its channels, or from a callback that one of its channels waits
 * for, as when two callbacks release each other's instances; or another release of it is running. Status_OutOfMemory: nothing was done. As soon as a release
 * runs Corvane_CreateChannel is refused. Blocks as Corvane_DeleteChannel does, for each channel; outside callbacks also until
 * sound devices are closed (SDL takes about 150 ms for one), at most 400 ms: after it the host may call SDL_Quit. [any*]
 */
CORVANE_API uint32_t Corvane_Release(void** instance);

/*
 * Loads the decoder plug-ins of `directory`: see PLUG-INS. Channels that are made later can use them. The name is taken as
 * it is: a relative one counts from the working directory of the process; an empty one leaves the search to the loader;
 * the loader replaces $ORIGIN, which is the folder of this library, $LIB and $PLATFORM in it. What is found is not
 * reported: option 46, 52 or 53 and code 13 of the stream-info callback say whether a channel has a decoder of that kind.
 * Status_InvalidArgument: a pointer is null, or instance the handle of a channel. Status_OutOfMemory: nothing was done.
 * Otherwise Status_Ok, also where nothing was found. In the code of a plug-in nothing is done. Blocks while libraries
 * start, and for a load in another thread. [any]
 */
CORVANE_API uint32_t Corvane_LoadDecoders(void* instance, const char* directory);

/* Writes the version of the library; no pointer may be null. Status_Ok. [any] */
CORVANE_API uint32_t Corvane_GetVersionInfo(uint8_t* major, uint8_t* minor, uint8_t* build, uint8_t* revision);

/* Kept for old clients: return Status_Ok and do nothing. [any] */
CORVANE_API uint32_t Corvane_SetFlags(void* instance, ...);
CORVANE_API uint32_t Corvane_GetFlags(void* instance, ...);
CORVANE_API uint32_t Corvane_GetCapabilities(void* instance, ...);

/* Functions that this version does not have: return Status_NotSupported and read no argument. [any] */
CORVANE_API uint32_t Corvane_SetQueueEmptyNotify(void* channel, ...);
CORVANE_API uint32_t Corvane_RegisterVAStreamInfoCallback(void* channel, ...);
CORVANE_API uint32_t Corvane_SetVAStreamEffectParam(void* channel, ...);
CORVANE_API uint32_t Corvane_GetAvgAudioVolume(void* channel, ...);
CORVANE_API uint32_t Corvane_SetAudioSamplesPerCalc(void* channel, ...);

/* ---- Channels ------------------------------------------------------------------------------------------------------ */

/*
 * Makes a live channel, stopped, with its render thread. `settings` may be null: no window, all defaults. The record is
 * copied. On success *channel is a handle that lives until Corvane_DeleteChannel or Corvane_Release; it is written before
 * any callback runs. On failure *channel is unchanged and no thread or memory remains.
 * Status_InvalidArgument: instance or channel is null, or instance the handle of a channel. Status_DecodeOnlyInstance.
 * Status_OutOfMemory. Status_Failed: no thread could be started, or the instance is being released. Does not block.
 * [any]
 */
CORVANE_API uint32_t Corvane_CreateChannel(void* instance, void** channel, const ChannelSettings* settings);

/*
 * Stops and destroys *channel and sets *channel to null. Where *channel is no channel of this instance it is only set to
 * null.
 * Status_InvalidArgument: instance or channel is null, or instance the handle of a channel; nothing was done.
 * Status_Failed: called from a callback of this channel; nothing was done. Blocks for a running decode, at most 20 ms
 * more, and for a client callback that is running. [any*]
 */
CORVANE_API uint32_t Corvane_DeleteChannel(void* instance, void** channel);

/*
 * Starts the worker. `options`: 0, or CORVANE_START_WAITING, which is all that happens on a channel that was started
 * already. Waits for the end of a stop in progress.
 * Status_InvalidArgument: channel is null. Status_WrongChannelType. Status_Failed: no thread could be started; or the
 * call came from a callback while the channel is being stopped or deleted. Status_OutOfMemory. [any]
 */
CORVANE_API uint32_t Corvane_StartChannel(void* channel, uint32_t options);

/*
 * Stops the worker, ends sound, empties the queue and drops the decoder; the last picture stays. A producer that waits for space
 * returns Status_ChannelNotStarted. A stopped channel stays stopped.
 * Status_InvalidArgument: channel is null. Status_WrongChannelType. Status_Failed: called from a callback of this
 * channel; nothing was done. Blocks as Corvane_DeleteChannel. [any*]
 */
CORVANE_API uint32_t Corvane_StopChannel(void* channel);

/*
 * Queues one encoded frame. The record and its buffers are copied once and may be reused at once. Metadata takes its
 * turn in the queue; this version does not parse it.
 * Status_InvalidArgument: a pointer is null, or `data` is null with a size. Status_WrongChannelType.
 * Status_UnsupportedMedia: streamType is unknown, or excluded by the media mode. Status_OutOfMemory: no memory, or a
 * frame above 256 MiB. Status_Failed: an extension of the frame is damaged. Status_ChannelNotStarted.
 * Status_QueueFull: the queue holds its buffer time plus one second of video with a key frame in it, 13 seconds of
 * sound, or 1000 metadata frames. After each of them the channel goes on, only this frame is lost. Blocks only on a
 * channel that blocks when full (option 42), until there is space or the channel stops. Metadata does not end the
 * buffering: while no picture or sound comes none leaves the queue, and a channel that blocks waits after 1000. [any]
 */
CORVANE_API uint32_t Corvane_InputEncodedMediaFrame(void* channel, const MediaFrameHeader* frame);

/*
 * Changes settings under the record's mask, in a fixed order: 0x0001, 0x0002, 0x0004, 0x0008, 0x0010, 0x0020, 0x0040,
 * 0x0400, 0x0800, 0x1000, 0x2000.
 * Status_InvalidArgument: a pointer is null, or mask has 0x0800 and window is 0 (nothing was applied).
 * Status_WrongChannelType. Does not block. [any]
 */
CORVANE_API uint32_t Corvane_UpdateChannelSettings(void* channel, const ChannelUpdate* update);

/*
 * Sets one option; a stop resets none. A decoder channel has those that DECODER CHANNELS names, with 16, 17 and 18 from its
 * settings at first. On an AVI channel id, value and extra, each cut to 32 bits, go to the side library (movarix.h), whose
 * status is returned. Options of this version (value; default):
 *   3   zero: the fixed border is not used; non-zero
 *   6   bytes of 0 before each raw picture; 0
 *   7, 8, 9, 10   left, right, top, bottom margin in pixels; 0
 *   11  pointer to DisplayArea, `extra` of CORVANE_AREA_*; none. Status_InvalidArgument for a null pointer, a null window
 *       or an empty rectangle; fields of lower bits are then set all the same
 *   13  media mode, of CORVANE_MEDIA_*; 3
 *   14  zero: no raw pictures; non-zero
 *   15  zero: no raw sound; non-zero
 *   16  format of raw pictures, of CORVANE_PICTURE_*; 0, which is none: no raw pictures
 *   17  quality of JPEG stills: 50 leaves the quantisation tables of the encoder as they are, less is finer and larger, more
 *       is coarser; 0, the finest
 *   18  context of the raw callback, with the CorvaneRawCallback in `extra`; none. Waits for a running call of the callback
 *       that it replaces, not from inside any callback. A JPEG picture has quality 0
 *   22  context of a raw callback that replaces that of option 18 while it is set, with the callback in `extra`; none
 *   25  path (const char*) of a BMP or PNG file: the logo that the window shows while the channel is stopped.
 *       Status_Failed: null, or it cannot be loaded; the old logo stays. Reads the file during the call
 *   26  cairo_surface_t* of an image: the logo, copied during the call; 0: no logo. Status_Failed: not an image
 *   31  empties the queue; value ignored
 *   35  non-zero: pictures marked interlaced are smoothed; 0
 *   42  zero: a full queue blocks Corvane_InputEncodedMediaFrame; non-zero: it returns Status_QueueFull; non-zero
 *   45  when on-screen text is refreshed, bits of CORVANE_TEXT_*; 3
 *   46, 52, 53   hardware kind for H.264, MPEG-4, H.265: 0 software, 1 to 3; 0
 *   47  accepted, no effect
 *   48  decoding threads, 0 automatic (2 from 1280x800 on, else 1); 0
 *   55  memory mode of backward play; 0
 *   56  still overlay, a CorvaneOsdCallback, with its context in `extra`; none. Called for each still on the thread that
 *       asks for it, several at once if need be, with the still's own size; colour 0 is transparent. Waits for a running
 *       call of the callback that it replaces, not from inside any callback
 *   57  resize kind, of CORVANE_RESIZE_*, others ignored; 0. It counts where pictures are made smaller
 *       on their way: for the cap of Corvane_SetRawDataCallbackSize, and for the plain renderer in windows of half the
 *       picture's size and below. The default renderer gets whole pictures and averages
 *   1000  by which colours RGB is made, of CORVANE_COLOURS_*; 0. It counts from the next picture on, and for stills at once.
 *       Status_InvalidArgument: any other value
 * Options 46, 48, 52, 53, 55 count for the next decoder that is made.
 * Status_InvalidArgument: channel is null. Status_WrongChannelType. Status_NotSupported: any other id, also those
 * that later versions will have. Does not block. [any]
 */
CORVANE_API uint32_t Corvane_SetChannelOption(void* channel, int32_t id, uint64_t value, uint64_t extra);

/*
 * Sets how much the queue buffers before frames leave, in milliseconds; 0 counts as 1, which is the default.
 * Status_InvalidArgument: channel is null. Status_WrongChannelType. [any]
 */
CORVANE_API uint32_t Corvane_SetBufferTime(void* channel, uint32_t milliseconds);

/*
 * Chooses the frames that are decoded: all (0), key frames only (1), or without some H.264 temporal layers, of which 2
 * leaves out the fewest and 8 all; see CORVANE_DISPLAY_*. 1 takes effect after one more frame, its end with the next key
 * frame. Values above 8 are ignored.
 * Status_InvalidArgument: channel is null. Status_WrongChannelType. [any]
 */
CORVANE_API uint32_t Corvane_SetDisplayMode(void* channel, uint32_t mode);

/*
 * Fills *state.
 * Status_InvalidArgument: a pointer is null. Status_WrongChannelType. [any]
 */
CORVANE_API uint32_t Corvane_GetRemainingQueueElementCount(void* channel, QueueState* state);

/*
 * Fills *statistics, as far as its recordSize reaches. Waits for nothing but short locks, also while the channel decodes,
 * presents or stops.
 * Status_InvalidArgument: a pointer is null, or recordSize is below 4. Status_WrongChannelType. [any]
 */
CORVANE_API uint32_t Corvane_GetChannelStatistics(void* channel, ChannelStatistics* statistics);

/* ---- Pictures in memory -------------------------------------------------------------------------------------------- */

/*
 * From now on, and until the channel is deleted, every picture goes to `callback` and not to a window; with a null
 * callback pictures are made and dropped. `kind`: CORVANE_PICTURE_BGR24 (3), _BGRA32 (4) or _I420 (11); non-zero
 * `bottomUp` with 3 and 4: PF_BGR24_FLIP, PF_BGRA32_FLIP. A slow callback delays pictures, not decoding;
 * pictures that it misses are lost. The last row and column of odd sizes stay 0, see the pixel formats.
 * Status_InvalidArgument: channel is null. Status_NotSupported: kind (tested before the type). Status_WrongChannelType.
 * Status_OutOfMemory. Waits for a running call of the callback that it replaces, not from inside any callback. [any]
 */
CORVANE_API uint32_t Corvane_RegisterRawDataCallback(void* channel, CorvanePictureCallback callback, void* context,
                                                     uint32_t kind, uint32_t bottomUp);

/*
 * Caps the size of those pictures in pixels, each rounded up to even; 0 in either: no cap. A larger picture is scaled
 * to the cap, each side by itself.
 * Status_InvalidArgument: channel is null. Status_WrongChannelType. [any]
 */
CORVANE_API uint32_t Corvane_SetRawDataCallbackSize(void* channel, uint32_t width, uint32_t height);

/*
 * Calls `callback` after each pass of presenting.
 * Status_InvalidArgument: channel or callback is null. Status_WrongChannelType.
 * Waits for a running call of the callback that it replaces, not from inside any callback. [any]
 */
CORVANE_API uint32_t Corvane_RegisterAfterDisplayCallback(void* channel, CorvaneAfterDisplayCallback callback,
                                                          void* context);

/* Ends that. Status_InvalidArgument: channel is null. Status_WrongChannelType. Waits as above. [any] */
CORVANE_API uint32_t Corvane_UnregisterAfterDisplayCallback(void* channel);

/* ---- Stills -------------------------------------------------------------------------------------------------------- */

/*
 * Writes a still into *picture. `flags` is of CORVANE_STILL_*; the first of these that is set decides:
 *   ENCODED (0x2)  the encoded payload of the picture that was decoded last (of two fields the first), with the size that
 *                  its frame states
 *   FORMAT (0x4)   that picture in the still format of bits 16 to 31, as in CORVANE_STILL_AS(CORVANE_PICTURE_JPEG). Pixel
 *                  formats have rows without padding, the bottom row last; see the table at CORVANE_PICTURE_*
 *   BMP24 (0x1)    as FORMAT with CORVANE_PICTURE_BMP_BGR24 (6)
 *   none of these  what the channel's window shows now, as a BMP file of 32 bits a pixel, bottom-up, 54 bytes of header.
 *                  Parts of the window that other windows cover, or that lie off the screen, come from what the channel
 *                  drew last
 * With CALLERS_BUFFER (0x8) picture->data is memory of the caller, picture->size bytes; otherwise the call allocates it, to
 * be released by Corvane_FreePicture.
 * The still has the size that the frame states, else the decoded size; it runs no client filter, no rotation and no
 * smoothing. What is not written of odd sizes (see the pixel formats) is 0. Without padding, a colour row has
 * w / 2 samples, rounded down (PF_NV12: w bytes), and planes follow each other at once; what is left of w x h x 3 / 2
 * bytes, rounded up, is 0. The still overlay (option 56) is laid over formats 6, 8 and 11, and over 0x1. While the channel
 * is stopped and has a logo, the still is the logo, in formats of 32 bits a pixel (4, 7, 14).
 * Status_InvalidArgument: a pointer is null, also picture->data with 0x8; unknown format. Status_WrongChannelType.
 * Status_Failed: no picture yet; stopped without a logo, or with one and another format; for the window: none, nothing to
 * be read, or no answer within a second. Status_BufferTooSmall: picture is unchanged. Status_OutOfMemory. Blocks for a
 * decode in progress; for the window, at most a second. [any]
 */
CORVANE_API uint32_t Corvane_GetCurrentSnapShot(void* channel, PictureBuffer* picture, uint32_t flags);

/*
 * As Corvane_GetCurrentSnapShot, but with 0x4 and 0x1 the part of the picture that option 11 selects is scaled up to the
 * size of the whole. A selection that is off, or that does not lie inside the overview area, is the whole picture. [any]
 */
CORVANE_API uint32_t Corvane_GetZoomedSnapShot(void* channel, PictureBuffer* picture, uint32_t flags);

/*
 * Draws a still with `deviceContext`, a cairo_t of the client on any kind of surface: into the rectangle (0, 0) to the
 * inside of the channel's window, less its margins, in units of the client's matrix and inside the client's clip.
 * Without a window the surface's own size counts, and the picture's where the surface has no bounds. The context is left
 * as it was. The call may run on any thread that may use the context. *info is filled.
 * Status_InvalidArgument: a pointer is null. Status_WrongChannelType. Status_Failed: no picture, as above; the context is
 * in error. Status_OutOfMemory. Blocks for a decode in progress. [any]
 */
CORVANE_API uint32_t Corvane_GetCurrentDisplay(void* channel, struct _cairo* deviceContext, DisplayFrameInfo* info);

/* As Corvane_GetCurrentDisplay, with the selection of Corvane_GetZoomedSnapShot. [any] */
CORVANE_API uint32_t Corvane_GetZoomedDisplay(void* channel, struct _cairo* deviceContext, DisplayFrameInfo* info);

/* Frees picture->data and sets it to null; null is no error. Status_InvalidArgument: picture is null. Status_Ok. [any] */
CORVANE_API uint32_t Corvane_FreePicture(PictureBuffer* picture);

/* ---- Filters and rotation ------------------------------------------------------------------------------------------- */

/*
 * Appends `filter`, an object of QMRX::Filter::IFilter (filter.h), to the channel's filters. The client keeps it
 * alive until it is removed.
 * Status_InvalidArgument: a pointer is null. Status_WrongChannelType. Status_Failed: it is inserted already.
 * Status_OutOfMemory. Does not block. [any]
 */
CORVANE_API uint32_t Corvane_InsertFilter(void* channel, void* filter);

/*
 * Removes `filter`; one that is not inserted is no error. Waits for a running call of the filter, not from inside any
 * callback: there the filter may still be running when the call returns.
 * Status_InvalidArgument: a pointer is null. Status_WrongChannelType. Status_OutOfMemory. [any]
 */
CORVANE_API uint32_t Corvane_RemoveFilter(void* channel, void* filter);

/*
 * Rotates every picture about its centre by `angle` degrees, clockwise, into the box around it, each side rounded up
 * to even. Works in windows and for kinds 3 and 11 of Corvane_RegisterRawDataCallback; pictures of other kinds are lost
 * while it is on.
 * Status_InvalidArgument: channel is null or the angle is not finite. Status_WrongChannelType. Status_Failed:
 * rotation is on already. Status_OutOfMemory. Does not block. [any]
 */
CORVANE_API uint32_t Corvane_EnableRotateFilter(void* channel, double angle);

/* Changes the angle. As above; Status_Failed: rotation is off. [any] */
CORVANE_API uint32_t Corvane_SetRotateOption(void* channel, double angle);

/* Ends rotation; off already is no error. Status_InvalidArgument: channel is null. Status_WrongChannelType. [any] */
CORVANE_API uint32_t Corvane_DisableRotateFilter(void* channel);

/* ---- Decoder channels ------------------------------------------------------------------------------------------------ */

/*
 * Makes a decoder channel. `settings` is copied. On success *channel is a handle that lives until
 * Corvane_DeleteDecoderChannel or Corvane_Release. On failure *channel is unchanged and no memory remains.
 * Status_InvalidArgument: a pointer is null, or instance the handle of a channel. Status_OutOfMemory. Status_Failed: the
 * instance is being released. Does not block. [any]
 */
CORVANE_API uint32_t Corvane_CreateDecoderChannel(void* instance, void** channel, const DecoderChannelSettings* settings);

/*
 * Destroys *channel and sets *channel to null; either delete takes any kind of channel. Where *channel is no channel of this
 * instance it is only set to null.
 * Status_InvalidArgument: instance or channel is null, or instance the handle of a channel; nothing was done.
 * Status_Failed: a call on it runs, on any thread; nothing was done. [any*]
 */
CORVANE_API uint32_t Corvane_DeleteDecoderChannel(void* instance, void** channel);

/*
 * Decodes one frame of video and writes its picture, in the format of option 16, to info->buffer, of info->capacity bytes;
 * *size gets the bytes written, with the prefix of option 6. Where this frame brings no picture, and with option 14 off, it
 * returns Status_Ok, and *info and *size are unchanged.
 * Status_InvalidArgument: a pointer is null, also info->buffer with a capacity. Status_WrongChannelType.
 * Status_UnsupportedMedia: no frame of video; placeholders are none here. Status_OutOfMemory. Status_UnknownPictureFormat.
 * Status_BufferTooSmall: nothing was written, and Corvane_GetDecodedVideoFrame still gives the picture. Status_Failed: the
 * frame cannot be read, it could not be decoded, no key frame has come, there is no decoder for it; the decode size is beyond
 * 16384 pixels a side or 2^26 in all; a picture of odd width or height was asked for in 24 or 32 bits a pixel, which this call,
 * unlike a still, does not give; a call on the channel runs. After each of them the channel goes on. What info->buffer holds
 * after Status_Failed is undefined. Blocks for the decoding. [any*]
 */
CORVANE_API uint32_t Corvane_DecodeVideo(void* channel, const MediaFrameHeader* frame, DecodedVideoInfo* info,
                                         uint32_t* size);

/*
 * Decodes one frame of sound and writes its samples to info->pcm, of info->capacity bytes; *size gets the bytes written.
 * With option 15 off it returns Status_Ok and changes nothing. 576,000 bytes hold any frame.
 * Status_InvalidArgument: a pointer is null, also info->pcm with a capacity. Status_WrongChannelType.
 * Status_UnsupportedMedia: no frame of sound. Status_OutOfMemory. Status_BufferTooSmall: nothing was written, and these samples
 * are lost. Status_Failed: the frame cannot be read, there is no decoder for it, it could not be decoded, or a call on the
 * channel runs. [any*]
 */
CORVANE_API uint32_t Corvane_DecodeAudio(void* channel, const MediaFrameHeader* frame, DecodedAudioInfo* info,
                                         uint32_t* size);

/*
 * Decodes one frame of video, and makes no picture yet. Where the frame brings one, *picture gets its size and *size the
 * bytes that it takes in the format of option 16, without a prefix: a buffer of *size and the prefix is always enough. Of a
 * JPEG it is a bound. Where it brings none, *picture and *size are unchanged.
 * Statuses as Corvane_DecodeVideo, but for those of the buffer and of the picture's format. [any*]
 */
CORVANE_API uint32_t Corvane_DecodeVideoDecodeOnly(void* channel, const MediaFrameHeader* frame,
                                                   DecodedPictureSize* picture, uint32_t* size);

/*
 * Writes the picture of the last decode to info->buffer, as Corvane_DecodeVideo does, but in `format`, of
 * CORVANE_PICTURE_*, after `prefix` bytes of 0; as often as it is called. Without a picture, and before the first decode,
 * it returns Status_Ok and changes nothing. `reserved` is ignored.
 * Statuses as Corvane_DecodeVideo, but for those of the frame. [any*]
 */
CORVANE_API uint32_t Corvane_GetDecodedVideoFrame(void* channel, uint32_t reserved, DecodedVideoInfo* info,
                                                  uint32_t format, uint32_t prefix, uint32_t* size);

/*
 * Decodes one frame of video or sound and calls the raw callback with the result, before it returns: that of option 22 where
 * it is set, also for sound, else that of the settings or option 18. The callback of option 22 gets the same picture again,
 * in requestedFormat, as long as it sets `repeat`.
 * Status_InvalidArgument: a pointer is null. Otherwise statuses as Corvane_DecodeVideo, but for those of the buffer;
 * Status_Failed also where the callback raised an exception. [any*]
 */
CORVANE_API uint32_t Corvane_InputToBeDecodedMediaFrame(void* channel, const MediaFrameHeader* frame);

/*
 * From now on pictures are scaled (option 57) to this size, each side rounded up to even. There is no way back to the size
 * of the stream. A size beyond the limits is refused by the calls that decode.
 * Status_InvalidArgument: channel is null, or width or height is 0. Status_WrongChannelType. [any]
 */
CORVANE_API uint32_t Corvane_SetDecodeSize(void* channel, uint32_t width, uint32_t height);

/* ---- Recording ------------------------------------------------------------------------------------------------------- */

/*
 * Make an AVI channel, stopped. On success *channel is a handle that lives until Corvane_DeleteAVIChannel or Corvane_Release.
 * On failure *channel is unchanged.
 * Status_InvalidArgument: a pointer is null, or instance the handle of a channel. Status_WrongChannelType: there is no side
 * library. Status_OutOfMemory. Status_Failed: the instance is being released. Else the side library's status. [any]
 */
CORVANE_API uint32_t Corvane_CreateAVIChannel(void* instance, void** channel);
CORVANE_API uint32_t Corvane_CreateLiveAVIChannel(void* instance, void** channel);

/*
 * Deletes *channel, which stops it first, and sets *channel to null. Where *channel is no AVI channel of this instance it is
 * only set to null.
 * Status_InvalidArgument: a pointer is null, or instance the handle of a channel. Status_WrongChannelType: there is no side
 * library. Status_Failed: called inside a call of the side library on this channel, or from a callback of a decoder channel of
 * the instance, which the side library may be waiting for; nothing was done. Blocks as long as the side library does. [any*]
 */
CORVANE_API uint32_t Corvane_DeleteAVIChannel(void* instance, void** channel);

/*
 * Begin and end a file. `value`: what the side library takes; of this package a const MovarixStart*.
 * Status_InvalidArgument: channel is null. Status_WrongChannelType. Else the side library's status. [any]
 */
CORVANE_API uint32_t Corvane_StartAVIChannel(void* channel, uint64_t value);
CORVANE_API uint32_t Corvane_StopAVIChannel(void* channel);

/*
 * Hand over one frame: encoded (of this package a const MediaFrameHeader*) or decoded (of `kind`, of MOVARIX_DECODED_*).
 * Statuses as Corvane_StartAVIChannel. [any]
 */
CORVANE_API uint32_t Corvane_InputAVIMedia(void* channel, uint64_t value);
CORVANE_API uint32_t Corvane_InputDecodedAVIMedia(void* channel, uint32_t kind, uint64_t value);

/*
 * Bytes written to the current file so far. `value`: of this package a uint64_t* that gets them. Status_Failed also where the
 * side library is too old to tell. Statuses as Corvane_StartAVIChannel. [any]
 */
CORVANE_API uint32_t Corvane_GetCurrentAVIFileSize(void* channel, uint64_t value);

/*
 * What frames are compressed to, for channels of the instance that are made later. Of this package Choose takes the type, the
 * bit rate and the key interval, and Set and Get a MovarixCompressor*.
 * Status_InvalidArgument: instance is null, or the handle of a channel. Status_WrongChannelType: there is no side library. Else
 * the side library's status. [any]
 */
CORVANE_API uint32_t Corvane_ChooseVideoCompressor(void* instance, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Corvane_ChooseAudioCompressor(void* instance, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Corvane_SetVideoCompressorParam(void* instance, uint64_t value);
CORVANE_API uint32_t Corvane_GetVideoCompressorParam(void* instance, uint64_t value);
CORVANE_API uint32_t Corvane_SetAudioCompressorParam(void* instance, uint64_t value);
CORVANE_API uint32_t Corvane_GetAudioCompressorParam(void* instance, uint64_t value);

/*
 * The same for one channel.
 * Statuses as Corvane_StartAVIChannel. [any]
 */
CORVANE_API uint32_t Corvane_ChooseChannelVideoCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Corvane_ChooseChannelAudioCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c);
CORVANE_API uint32_t Corvane_SetChannelVideoCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Corvane_GetChannelVideoCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Corvane_SetChannelAudioCompressorParam(void* channel, uint64_t value);
CORVANE_API uint32_t Corvane_GetChannelAudioCompressorParam(void* channel, uint64_t value);

#ifdef __cplusplus
}
#endif

#endif
