#include "platform/raster/DrawContext.h"

#include <cairo.h>

#include <limits>

#include "base/FailurePoint.h"

namespace corvane {

namespace {

bool MustFail() {
    return failure::MustFail(failure::Site::PlatformCall);
}

}    // namespace

DrawContext::DrawContext(const PictureView& picture, uint32_t width, uint32_t height) {
    if (!picture || picture.stride[0] > std::numeric_limits<int>::max())
        return;
    // Where cairo fails it returns an object in error, which later calls accept.
    m_surface =
        cairo_image_surface_create_for_data(picture.plane[0], CAIRO_FORMAT_RGB24, static_cast<int>(picture.size.width),
                                            static_cast<int>(picture.size.height), static_cast<int>(picture.stride[0]));
    m_context = cairo_create(m_surface);
    cairo_rectangle(m_context, 0, 0, width, height);
    cairo_clip(m_context);
    if (MustFail() || cairo_status(m_context) != CAIRO_STATUS_SUCCESS) {
        cairo_destroy(m_context);
        m_context = nullptr;
    }
}

DrawContext::~DrawContext() {
    // Finishing flushes, and detaches the pixels from references that are left.
    cairo_surface_finish(m_surface);
    cairo_surface_destroy(m_surface);
    cairo_destroy(m_context);
}

}    // namespace corvane
