#include "platform/raster/DisplayTarget.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>

#include "base/FailurePoint.h"
#include "base/Limits.h"

namespace corvane {

namespace {

Status StatusOf(cairo_status_t status) {
    if (status == CAIRO_STATUS_SUCCESS)
        return Status::Ok;
    return status == CAIRO_STATUS_NO_MEMORY ? Status::OutOfMemory : Status::Failed;
}

// A surface without bounds reports extents of millions.
uint32_t Length(double from, double to) {
    const double length = std::round(std::abs(to - from));
    return length >= 1 && length <= limits::kMaxPictureSide ? static_cast<uint32_t>(length) : 0;
}

// Keeps the path, which cairo_save does not.
class PathKeeper {
public:
    explicit PathKeeper(cairo_t* context) : m_context(context), m_path(cairo_copy_path(context)) {
        cairo_new_path(m_context);
    }
    ~PathKeeper() {
        cairo_new_path(m_context);
        if (m_path->num_data > 0)
            cairo_append_path(m_context, m_path);
        cairo_path_destroy(m_path);
    }
    PathKeeper(const PathKeeper&) = delete;
    PathKeeper& operator=(const PathKeeper&) = delete;

private:
    cairo_t* const m_context;
    cairo_path_t* const m_path;
};

}    // namespace

DisplayTarget::Size DisplayTarget::OwnSize() const {
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;
    cairo_save(m_context);
    cairo_reset_clip(m_context);
    cairo_clip_extents(m_context, &left, &top, &right, &bottom);
    cairo_restore(m_context);
    return {Length(left, right), Length(top, bottom)};
}

Status DisplayTarget::Draw(const ConstPictureView& picture, const Rect& area) const {
    CORVANE_RETURN_IF_FAILED(StatusOf(cairo_status(m_context)));
    if (area.Empty())
        return Status::Ok;
    Raster copy;    // in 32 bits, the first row on top
    if (!copy.Resize(picture.size.width, picture.size.height) ||
        !Stretch(copy.View(), copy.View().Bounds(), picture, copy.View().Bounds()))
        return Status::OutOfMemory;
    const PictureView& view = copy.View();
    cairo_surface_t* const surface =
        cairo_image_surface_create_for_data(view.plane[0], CAIRO_FORMAT_RGB24, static_cast<int>(view.size.width),
                                            static_cast<int>(view.size.height), static_cast<int>(view.stride[0]));
    {
        const PathKeeper path(m_context);
        cairo_save(m_context);
        cairo_rectangle(m_context, static_cast<double>(area.left), static_cast<double>(area.top),
                        static_cast<double>(area.Width()), static_cast<double>(area.Height()));
        cairo_clip(m_context);
        cairo_translate(m_context, static_cast<double>(area.left), static_cast<double>(area.top));
        cairo_scale(m_context, static_cast<double>(area.Width()) / view.size.width,
                    static_cast<double>(area.Height()) / view.size.height);
        cairo_set_source_surface(m_context, surface, 0, 0);
        cairo_pattern_set_extend(cairo_get_source(m_context), CAIRO_EXTEND_PAD);
        cairo_pattern_set_filter(cairo_get_source(m_context), CAIRO_FILTER_GOOD);
        cairo_set_operator(m_context, CAIRO_OPERATOR_OVER);
        cairo_paint(m_context);
        cairo_restore(m_context);
    }
    // After this a recording surface (vector or not) uses its own copy of the pixels, which are freed when this
    // function returns.
    cairo_surface_finish(surface);
    cairo_surface_destroy(surface);
    if (failure::MustFail(failure::Site::PlatformCall))
        return Status::OutOfMemory;
    return StatusOf(cairo_status(m_context));
}

}    // namespace corvane
