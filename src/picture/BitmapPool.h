// One process-wide set of pictures with use counts, so that many channels with the same logo share one.
#pragma once

#include <cstddef>
#include <memory>

#include "base/Status.h"
#include "platform/raster/Raster.h"

struct _cairo_surface;

namespace corvane {

// A picture that nobody changes any more; the last holder's release frees it.
using BitmapPtr = std::shared_ptr<const Raster>;

class BitmapPool {
public:
    // The pool's own copy of an equal picture (size and all B, G, R bytes), else `picture` itself from now on. May
    // raise std::bad_alloc. Any thread.
    static BitmapPtr Add(Raster picture);
    // Pictures alive now.
    static size_t Count();

    // Reads a BMP or PNG file. Failed where it cannot be read; OutOfMemory.
    static Status Load(const char* path, BitmapPtr& out);
    // Copies a client's image surface.
    static Status Copy(struct _cairo_surface* surface, BitmapPtr& out);
};

}    // namespace corvane
