// decoder.h: the decoder interface, a binary contract between libcorvane and decoder plug-ins. C++17.
//
// The table of DecoderContext has exactly four entries in the order below and no destructor among them, so a plug-in
// written in C can lay it out by hand: an object whose first word points at a table of four functions, each with the
// object as its first argument. Exceptions must not cross this interface. All calls on one decoder come from one thread
// at a time; references on shared pictures may be dropped from any thread, also after Destroy.
#ifndef CORVANE_DECODER_H
#define CORVANE_DECODER_H

#include <cstddef>
#include <cstdint>

namespace corvane {

// One encoded payload, 16 bytes. The bytes at `data` start 16-byte aligned and are followed by at least 32 zero bytes;
// they live until the call returns.
//
// A video unit is the payload of one frame of the client, which may be damaged, empty or of another type, with two
// exceptions for H.264, H.265 (both with start codes, Annex B) and MPEG-4 Visual. Frames without a picture (parameter
// sets, supplemental information, delimiters, filler, the end of a sequence) are put in front of the next picture, up to
// 64 KiB of them. Two complementary fields of H.264 in two frames are one unit, whose `type_or_count` is that of the
// first. A field whose second field does not follow is dropped; after a few of these in a row each field of the
// stream is a unit.
struct EncodedUnit {
    const uint8_t* data;
    uint32_t size;             // bytes
    uint32_t type_or_count;    // video: 0 key frame, else a dependent frame; audio: coded blocks in the payload
};

// One decoded picture, 88 bytes, 4:2:0, 8 bits a sample. Three planes Y, U, V, or two (Y and U V pairs) when strides[2]
// is 0. A picture of odd size has (size + 1) / 2 chroma samples.
struct DecodedFrame {
    uint8_t* planes[3];
    uint32_t strides[3];    // bytes
    uint32_t width;         // pixels
    uint32_t height;
    void* owner;               // filled by ShareFrame only: keeps the pixels alive
    void (*add_ref)(void*);    // takes a reference on owner
    void (*release)(void*);    // drops a reference on owner
    uint64_t reserved[2];      // copied, never read
};

class DecoderContext {
public:
    // Decodes one unit and hands out at most one picture. *got: 0 no picture in this call; 1 a picture that cannot be
    // shared; 2 a picture that ShareFrame can share. The picture is valid until the next call on this decoder. `owner`,
    // `add_ref` and `release` of `out` are not touched. Negative on failure; a damaged unit is no failure but gives
    // *got 0. An audio decoder returns -1.
    //
    // A decoder with a delay of n pictures gives none for its first n units and one for each that follows: the n-th
    // picture counts as that of the n-th unit. In forward play one that has given a picture and then gives none is
    // dropped, and the next key frame brings a new one; so is one that has never given a picture in 32 units and one
    // more for each thread that the client asked for.
    virtual int32_t DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit* in) = 0;

    // Decodes one unit to signed 16-bit interleaved samples. *size enters as the capacity of `pcm` in bytes and leaves
    // as the bytes written. Negative on failure, 0 otherwise. A video decoder returns 0x80000004.
    virtual int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) = 0;

    // Frees the object by its own allocator. Shared pictures stay valid.
    virtual void Destroy() = 0;

    // Takes one reference on the current picture and fills `owner`, `add_ref` and `release` of `out`. 0 on success,
    // 0x80000005 when `version` is below 2, -1 when there is no current picture, 0x80000004 when this decoder has no
    // pictures to share.
    virtual int32_t ShareFrame(DecodedFrame* out, int32_t version) = 0;

protected:
    ~DecoderContext() = default;    // not virtual: an object ends by Destroy only
};

static_assert(sizeof(void*) == 8, "the decoder interface is laid out for 64-bit builds");
static_assert(sizeof(EncodedUnit) == 16 && offsetof(EncodedUnit, type_or_count) == 12);
static_assert(sizeof(DecodedFrame) == 88 && offsetof(DecodedFrame, strides) == 24 &&
              offsetof(DecodedFrame, owner) == 48 && offsetof(DecodedFrame, reserved) == 72);

}    // namespace corvane

#endif
