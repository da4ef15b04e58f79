// Changes the size of an I420 or NV12 picture by libswscale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/AlignedBuffer.h"
#include "corvane/filter.h"

namespace QMRX::Filter {

class FilterResize final : public IFilter {
public:
    // One kind of scaling. Holds what it made for one size between pictures: a scaler context or, for the nearest
    // sample, the scaler's choice. Source and target format are the same.
    class Impl {
    public:
        virtual ~Impl() = default;
        virtual int32_t ScaleI420(const FilterArgs& args, uint32_t width, uint32_t height) = 0;
        virtual int32_t ScaleNV12(const FilterArgs& args, uint32_t width, uint32_t height) = 0;
        virtual uint32_t GetType() const = 0;
    };

    FilterResize();    // nearest neighbour
    ~FilterResize() override;

    // Target size in pixels, before each run.
    void SetSize(uint32_t width, uint32_t height);

    // 0 nearest, 1 linear, 2 cubic, 3 Lanczos; other values leave the present kind, and so does a lack of memory. The
    // same kind keeps its scaler context.
    void SetType(uint32_t type);
    uint32_t GetType() const { return m_impl->GetType(); }

    // 0; -1 for another format, for a size beyond the limits, and without memory.
    int32_t Process(FilterArgs* args) override;

    // Copies of pictures that the scaler cannot take as they lie (Process). None between pictures that it can.
    size_t ScratchBytes() const { return m_source.Size() + m_target.Size(); }
    void FreeScratch();

private:
    std::unique_ptr<Impl> m_impl;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    corvane::AlignedBuffer m_source;
    corvane::AlignedBuffer m_target;
};

}    // namespace QMRX::Filter
