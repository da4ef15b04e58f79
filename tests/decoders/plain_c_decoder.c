/*
 * A decoder plug-in in plain C: the object and its table are laid out by hand. The picture is 16 x 8, its luma the
 * first byte of the unit and its chroma the frame type; an empty unit fails.
 */
#include <stdint.h>
#include <string.h>

#define EXPORTED __attribute__((visibility("default")))

typedef struct EncodedUnit {
    const uint8_t* data;
    uint32_t size, type_or_count;
} EncodedUnit;

typedef struct DecodedFrame {
    uint8_t* planes[3];
    uint32_t strides[3], width, height;
    void* owner;
    void (*add_ref)(void*);
    void (*release)(void*);
    uint64_t reserved[2];
} DecodedFrame;

typedef struct Decoder {
    const struct DecoderTable* table;
    uint8_t pixels[16 * 12];
} Decoder;

EXPORTED int32_t liveDecoders;

static int32_t DecodeVideo(Decoder* self, DecodedFrame* out, uint32_t* got, const EncodedUnit* in) {
    if (in->size == 0)
        return -1;
    memset(self->pixels, in->data[0], 16 * 8);
    memset(self->pixels + 16 * 8, (int)in->type_or_count, 16 * 4);
    *out = (DecodedFrame){{self->pixels, self->pixels + 16 * 8, NULL}, {16, 16, 0}, 16, 8, NULL, NULL, NULL, {0, 0}};
    *got = 2;
    return 0;
}

static int32_t DecodeAudio(Decoder* self, uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    return self && !pcm && !size && !in ? 4 : 0;
}

static void Destroy(Decoder* self) {
    liveDecoders -= self != NULL;
}

static int32_t ShareFrame(Decoder* self, DecodedFrame* out, int32_t version) {
    out->owner = self;
    return version;
}

static const struct DecoderTable {
    int32_t (*decodeVideo)(Decoder*, DecodedFrame*, uint32_t*, const EncodedUnit*);
    int32_t (*decodeAudio)(Decoder*, uint8_t*, uint32_t*, const EncodedUnit*);
    void (*destroy)(Decoder*);
    int32_t (*shareFrame)(Decoder*, DecodedFrame*, int32_t);
} kTable = {DecodeVideo, DecodeAudio, Destroy, ShareFrame};

EXPORTED void* GetDecoderIsolated_QuickSync(void) {
    static Decoder decoder = {&kTable, {0}};
    ++liveDecoders;
    return &decoder;
}
