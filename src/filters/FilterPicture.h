// The only place where a record of filter.h becomes a view, and a view becomes a record.
#pragma once

#include <cstdint>
#include <utility>

#include "base/PictureView.h"
#include "corvane/filter.h"

namespace corvane {

// A record has no constant planes; nothing writes into those of a source. Strides fit 32 bits.
inline QMRX::Filter::Picture RecordOf(const ConstPictureView& view) {
    QMRX::Filter::Picture record{{}, {}, view.size.height, view.format};
    for (int i = 0; i < view.PlaneCount(); ++i) {
        record.plane[i] = const_cast<uint8_t*>(view.plane[i]);
        record.stride[i] = static_cast<int32_t>(view.stride[i]);
    }
    return record;
}

inline PictureView ViewOf(const QMRX::Filter::Picture& record, PictureSize size) {
    PictureView view{.size = size, .format = PixelFormat(record.format)};
    for (int i = 0; i < 3; ++i) {
        view.plane[i] = record.plane[i];
        view.stride[i] = record.stride[i];
    }
    if (record.format == PF_YV12) {
        std::swap(view.plane[1], view.plane[2]);
        std::swap(view.stride[1], view.stride[2]);
    }
    return IsBottomUp(record.format) && view && !size.Empty() ? view.Reversed() : view;
}

}    // namespace corvane
