/*
 * A decoder plug-in in C, as a whole: H.264 by libavcodec, in the place where a real one would drive a device.
 *
 *     cc -shared -fPIC decoder_plugin.c -o DecoderIsolated_QuickSync.so $(pkg-config --cflags --libs libavcodec libavutil)
 *
 * A client loads it with Corvane_LoadDecoders(instance, folder) before it makes channels, and asks for it with option 46
 * at 3. docs/plugins.md has the contract; corvane/decoder.h has the same declarations in C++.
 */
#include <libavcodec/avcodec.h>
#include <stdlib.h>
#include <string.h>

typedef struct EncodedUnit {
    const uint8_t* data;
    uint32_t size;
    uint32_t type; /* 0: key frame */
} EncodedUnit;

typedef struct DecodedFrame {
    uint8_t* planes[3];
    uint32_t strides[3], width, height;
    void* owner; /* this and the next two are filled by shareFrame only */
    void (*addReference)(void*);
    void (*release)(void*);
    uint64_t reserved[2];
} DecodedFrame;

/* One decoded picture with the count of those who use it. */
typedef struct Picture {
    AVFrame* frame;
    int references;
} Picture;

/* Its first word points at a table of four functions: that is all that the library knows of it. */
typedef struct Decoder {
    const struct DecoderTable* table;
    AVCodecContext* codec;
    AVPacket* packet;
    Picture* current; /* valid until the next decode, or longer for who takes a reference */
} Decoder;

static void addReference(void* picture)
{
    __atomic_add_fetch(&((Picture*)picture)->references, 1, __ATOMIC_RELAXED);
}

/* From any thread, also after the decoder is gone. */
static void release(void* picture)
{
    Picture* own = picture;
    if (!own || __atomic_sub_fetch(&own->references, 1, __ATOMIC_ACQ_REL) > 0) return;
    av_frame_free(&own->frame);
    free(own);
}

static Picture* newPicture(void)
{
    Picture* made = calloc(1, sizeof *made);
    if (!made) return NULL;
    made->references = 1;
    made->frame = av_frame_alloc();
    if (made->frame) return made;
    free(made);
    return NULL;
}

static int32_t decodeVideo(Decoder* self, DecodedFrame* out, uint32_t* got, const EncodedUnit* in)
{
    *got = 0;
    release(self->current);
    self->current = newPicture();
    if (!self->current || in->size > INT32_MAX / 2 || av_new_packet(self->packet, (int)in->size) < 0) return -1;
    if (in->size > 0) memcpy(self->packet->data, in->data, in->size);
    avcodec_send_packet(self->codec, self->packet); /* a damaged unit is no failure: it has no picture */
    av_packet_unref(self->packet);
    AVFrame* frame = self->current->frame;
    if (avcodec_receive_frame(self->codec, frame) < 0) return 0;
    if (frame->format != AV_PIX_FMT_YUV420P && frame->format != AV_PIX_FMT_YUVJ420P) return -1; /* not for this decoder */
    for (int i = 0; i < 3; ++i) {
        out->planes[i] = frame->data[i];
        out->strides[i] = (uint32_t)frame->linesize[i];
    }
    out->width = (uint32_t)frame->width;
    out->height = (uint32_t)frame->height;
    *got = 2; /* shareFrame can share it; 1: it cannot */
    return 0;
}

static int32_t decodeAudio(Decoder* self, uint8_t* samples, uint32_t* size, const EncodedUnit* in)
{
    (void)self, (void)samples, (void)size, (void)in;
    return (int32_t)0x80000004; /* a video decoder */
}

static void destroy(Decoder* self)
{
    release(self->current);
    av_packet_free(&self->packet);
    avcodec_free_context(&self->codec);
    free(self);
}

static int32_t shareFrame(Decoder* self, DecodedFrame* out, int32_t version)
{
    if (version < 2) return (int32_t)0x80000005;
    if (!self->current || !self->current->frame->data[0]) return -1;
    addReference(self->current);
    out->owner = self->current;
    out->addReference = addReference;
    out->release = release;
    return 0;
}

static const struct DecoderTable {
    int32_t (*decodeVideo)(Decoder*, DecodedFrame*, uint32_t*, const EncodedUnit*);
    int32_t (*decodeAudio)(Decoder*, uint8_t*, uint32_t*, const EncodedUnit*);
    void (*destroy)(Decoder*);
    int32_t (*shareFrame)(Decoder*, DecodedFrame*, int32_t);
} table = {decodeVideo, decodeAudio, destroy, shareFrame};

/* The factory of H.264. Null: there is no decoder, and the library's own takes its place. */
__attribute__((visibility("default"))) void* GetDecoderIsolated_QuickSync(void)
{
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    Decoder* made = calloc(1, sizeof *made);
    if (!made || !codec) {
        free(made);
        return NULL;
    }
    made->table = &table;
    made->packet = av_packet_alloc();
    made->codec = avcodec_alloc_context3(codec);
    if (made->codec) {
        made->codec->thread_count = 1; /* each thread would hold a picture back */
        made->codec->flags |= AV_CODEC_FLAG_LOW_DELAY;
    }
    if (made->packet && made->codec && avcodec_open2(made->codec, codec, NULL) == 0) return made;
    destroy(made);
    return NULL;
}
