// Scaling to the nearest sample: the choice of samples that libswscale makes, as tables.
#pragma once

#include <cstdint>
#include <span>

#include "base/AlignedBuffer.h"
#include "corvane/filter.h"
#include "kernels/SamplePick.h"

namespace QMRX::Filter {

class NearestSamples {
public:
    // Sizes in pixels, `format` is I420 or NV12 on both sides. The same arguments keep the tables. False without
    // memory, for a size that libswscale refuses, and where its answer is no choice of samples; Scale must not be
    // called then.
    [[nodiscard]] bool Make(uint32_t width, uint32_t height, uint32_t toWidth, uint32_t toHeight, uint32_t format);

    // Writes the same bytes as libswscale with SWS_POINT. An odd height has (height + 1) / 2 chroma rows on both sides.
    // Reads and writes no byte after the samples of a row.
    void Scale(const Picture& from, const Picture& to) const;

private:
    // For each sample along one side of the target the sample of the source.
    struct Axis {
        bool Ask(bool across, uint32_t from, uint32_t to);
        corvane::AlignedBuffer memory;
        std::span<uint32_t> luma, chroma;
    };
    bool MakeTables();

    uint32_t m_sizes[5] = {};    // the arguments of the last Make that gave tables, else the first is 0
    Axis m_rows;
    corvane::kernels::SamplePick m_luma, m_chroma;
};

}    // namespace QMRX::Filter
