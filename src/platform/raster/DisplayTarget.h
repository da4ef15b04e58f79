// Draws pictures on a client's own cairo context, with the client's matrix and clip, on any kind of surface. The
// client's settings of the context, its path included, are unchanged afterwards.
#pragma once

#include <cstdint>

#include "base/Rectangle.h"
#include "base/Status.h"
#include "platform/raster/Raster.h"

struct _cairo;

namespace corvane {

class DisplayTarget {
public:
    explicit DisplayTarget(struct _cairo* context) : m_context(context) {}

    // The surface's size in the client's units; 0 where the surface has no bounds or the context is in error.
    struct Size {
        uint32_t width;
        uint32_t height;
    };
    Size OwnSize() const;

    // Scales the picture (as Stretch takes it) into `area`, in the client's units. An empty area draws nothing. Failed:
    // the context is in error, before or by the drawing. OutOfMemory.
    Status Draw(const ConstPictureView& picture, const Rect& area) const;

private:
    struct _cairo* const m_context;
};

}    // namespace corvane
