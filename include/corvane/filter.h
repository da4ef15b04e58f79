// filter.h: client filters, objects that the picture chain of a channel runs on every picture before it is shown.
//
// A filter is inserted with Corvane_InsertFilter and removed with Corvane_RemoveFilter, which waits for a running call
// of the filter. The client owns it, and may delete it after it was removed from every channel. Filters run in
// the order of insertion: on the channel's worker thread, on I420 pictures of the size that the renderer asked for; while a
// raw callback is set also on its render thread, on pictures of the decoded size. No filter of a channel runs on both
// threads at once. Those of a decoder channel run on the thread of the caller, inside the call that makes a picture, on
// pictures of the size that it makes. C++17.
#ifndef CORVANE_FILTER_H
#define CORVANE_FILTER_H

#include <cstddef>
#include <cstdint>

namespace QMRX::Filter {

// One image. The second plane is always U and the third V; packed formats use the first plane only; NV12 has U V pairs
// in the second and null in the third. Rows of planar pictures are 64-byte aligned.
struct Picture {
    uint8_t* plane[3];
    int32_t stride[3];    // row bytes of each plane
    uint32_t height;      // rows
    uint32_t format;      // PF_* of corvane.h
};

// What one step works on. Width and height are the source's, in pixels.
struct FilterArgs {
    const Picture* source;
    Picture* destination;
    uint32_t width;
    uint32_t height;
};

// The table has five entries here: the C++ destructor takes entries 0 and 1, then the two queries (2, 3) and Process
// (4).
class IFilter {
public:
    virtual ~IFilter() = default;

    // Not called by the chain; the built-in filters return true.
    virtual bool WritesDestination() const { return true; }

    // Not called by the chain; the built-in filters return false.
    virtual bool WorksInPlace() const { return false; }

    // Reads the whole source and writes the whole destination; both are I420 of the same size. Negative on failure: the
    // rest of the chain is skipped, and the picture has the bytes that its buffer held before. An exception counts as
    // -1.
    virtual int32_t Process(FilterArgs* args) = 0;
};

static_assert(sizeof(Picture) == 48 && offsetof(Picture, stride) == 24 && offsetof(Picture, height) == 36);
static_assert(sizeof(FilterArgs) == 24);

}    // namespace QMRX::Filter

#endif
