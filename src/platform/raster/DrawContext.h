// What a client draws with: a fresh cairo context on a raster, clipped, that lives for one callback.
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
    // Flushes what was drawn. A client that kept a reference draws into nothing from here on.
    ~DrawContext();
    DrawContext(const DrawContext&) = delete;
    DrawContext& operator=(const DrawContext&) = delete;

    struct _cairo* Get() const {
        return m_context;
    }

private:
    struct _cairo_surface* m_surface = nullptr;    // a context in error no longer tells its own
    struct _cairo* m_context = nullptr;
};

}    // namespace corvane
