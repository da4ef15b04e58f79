// The set of logo pictures of the process, so that channels with equal logos share one.
#pragma once

#include <cstddef>
#include <memory>

#include "base/Status.h"
#include "platform/raster/Raster.h"

struct _cairo_surface;

namespace corvane {

// A picture that is not changed any more; the last holder frees it.
using BitmapPtr = std::shared_ptr<const Raster>;

class BitmapPool {
public:
    // Returns a picture of the pool that is equal (size and all B, G, R bytes), or adds `picture`. May raise
    // std::bad_alloc. Any thread.
    static BitmapPtr Add(Raster picture);
    // Pictures alive now.
    static size_t Count();

    // Reads a BMP or PNG file. Failed where it cannot be read; OutOfMemory.
    static Status Load(const char* path, BitmapPtr& out);
    // Copies a client's image surface.
    static Status Copy(struct _cairo_surface* surface, BitmapPtr& out);
};

}    // namespace corvane
