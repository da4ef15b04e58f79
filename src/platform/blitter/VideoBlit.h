// Draws a 4:2:0 picture on a raster. A picture that shrinks is scaled before the conversion, a picture that grows after
// it.
#pragma once

#include <cstdint>

#include "kernels/PlaneShrink.h"
#include "platform/raster/Raster.h"

namespace corvane {

// Keeps tables and bands for the next picture of the same sizes. One thread at a time.
class VideoBlit {
public:
    // Scales `source`, a part of `picture` (PF_I420 or PF_NV12 of even sides), into the whole of `destination`, of
    // which only what lies on `to` is written. False when there is no memory; nothing, or a part from the top, is drawn
    // then.
    [[nodiscard]] bool Draw(const PictureView& to, const Rect& destination, const ConstPictureView& picture,
                            const Rect& source);
    // Bytes of memory kept.
    size_t Bytes() const;

private:
    bool DrawShrunk(const PictureView& to, const Rect& destination, const ConstPictureView& picture,
                    const Rect& source);
    bool DrawConverted(const PictureView& to, const Rect& destination, const ConstPictureView& picture,
                       const Rect& source);
    void ShrinkBand(const ConstPictureView& shown, uint32_t row, uint32_t rows);
    bool EnsureBands(uint32_t width, bool planar);
    bool EnsureWhole(uint32_t width, uint32_t height);

    kernels::PlaneShrink m_luma;
    kernels::PlaneShrink m_chroma;
    AlignedBuffer m_bands;    // of the shrunk planes, a few rows each
    uint32_t m_bandStep = 0;
    PictureView m_band;
    Raster m_whole;    // converted, before it is enlarged or cut
};

}    // namespace corvane
