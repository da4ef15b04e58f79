/*
 * A decoder plug-in in plain C: the object and its table are laid out by hand. The picture is 16 x 8, its luma the first byte
 * of the unit and its chroma the frame type; an empty unit fails.
 */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

typedef struct EncodedUnit {
    const uint8_t* data;
    uint32_t size;
    uint32_t type_or_count;
} EncodedUnit;

typedef struct DecodedFrame {
    uint8_t* planes[3];
    uint32_t strides[3];
    uint32_t width, height;
    void* owner;
    void (*add_ref)(void*);
    void (*release)(void*);
    uint64_t reserved[2];
} DecodedFrame;

typedef struct Pixels {
    int references;
    uint8_t bytes[16 * 8 * 3 / 2];
} Pixels;

struct Decoder;
typedef struct DecoderTable {
    int32_t (*DecodeVideo)(struct Decoder*, DecodedFrame*, uint32_t*, const EncodedUnit*);
    int32_t (*DecodeAudio)(struct Decoder*, uint8_t*, uint32_t*, const EncodedUnit*);
    void (*Destroy)(struct Decoder*);
    int32_t (*ShareFrame)(struct Decoder*, DecodedFrame*, int32_t);
} DecoderTable;

typedef struct Decoder {
    const DecoderTable* table;
    Pixels* pixels;
} Decoder;

static int live_pixels, live_decoders;

static void AddRef(void* owner) {
    ++((Pixels*)owner)->references;
}

static void Release(void* owner) {
    if (--((Pixels*)owner)->references == 0) {
        --live_pixels;
        free(owner);
    }
}

static int32_t DecodeVideo(Decoder* self, DecodedFrame* out, uint32_t* got, const EncodedUnit* in) {
    if (in->size == 0)
        return -1;
    if (self->pixels != NULL)
        Release(self->pixels);
    self->pixels = calloc(1, sizeof *self->pixels);
    self->pixels->references = 1;
    ++live_pixels;
    memset(self->pixels->bytes, in->data[0], 16 * 8);
    memset(self->pixels->bytes + 16 * 8, (int)in->type_or_count, 16 * 8 / 2);
    out->planes[0] = self->pixels->bytes;
    out->planes[1] = out->planes[0] + 16 * 8;
    out->planes[2] = NULL;
    out->strides[0] = out->strides[1] = 16;
    out->strides[2] = 0;
    out->width = 16;
    out->height = 8;
    *got = 2;
    return 0;
}

static int32_t DecodeAudio(Decoder* self, uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    (void)self, (void)pcm, (void)size, (void)in;
    return (int32_t)0x80000004u;
}

static void Destroy(Decoder* self) {
    if (self->pixels != NULL)
        Release(self->pixels);
    --live_decoders;
    free(self);
}

static int32_t ShareFrame(Decoder* self, DecodedFrame* out, int32_t version) {
    if (version < 2)
        return (int32_t)0x80000005u;
    if (self->pixels == NULL)
        return -1;
    AddRef(self->pixels);
    out->owner = self->pixels;
    out->add_ref = AddRef;
    out->release = Release;
    return 0;
}

__attribute__((visibility("default"))) void* GetDecoderIsolated_QuickSync(void) {
    static const DecoderTable table = {DecodeVideo, DecodeAudio, Destroy, ShareFrame};
    Decoder* decoder = calloc(1, sizeof *decoder);
    decoder->table = &table;
    ++live_decoders;
    return decoder;
}

/* Decoders and pictures that nobody has given back. */
__attribute__((visibility("default"))) int LiveObjects(void) {
    return live_pixels + live_decoders;
}
