// A new, clipped cairo context on a picture, which a client draws with during one callback.
#pragma once

#include <cstdint>

#include "platform/raster/Raster.h"

struct _cairo;
struct _cairo_surface;

namespace corvane {

class DrawContext {
public:
    // Clips to (0, 0) .. (width, height). Where cairo cannot make the context, Get is null: the text is skipped.
    DrawContext(const PictureView& picture, uint32_t width, uint32_t height);
    // Flushes the drawing. A reference that a client has kept draws into nothing afterwards.
    ~DrawContext();
    DrawContext(const DrawContext&) = delete;
    DrawContext& operator=(const DrawContext&) = delete;

    struct _cairo* Get() const {
        return m_context;
    }

private:
    struct _cairo_surface* m_surface = nullptr;    // kept here, since a context in error does not return it
    struct _cairo* m_context = nullptr;
};

}    // namespace corvane
