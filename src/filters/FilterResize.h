// Scales a picture in PF_I420 or PF_NV12 with libswscale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/AlignedBuffer.h"
#include "corvane/filter.h"

namespace QMRX::Filter {

class FilterResize final : public IFilter {
public:
    // One kind of scaling. Keeps its tables between pictures of one size: a scaler context or, for the nearest sample,
    // the scaler's choice. Source and target have the same format.
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

    // 0 nearest, 1 linear, 2 cubic, 3 Lanczos; any other value, and a lack of memory, leave the kind unchanged. Setting
    // the same kind keeps its tables.
    void SetType(uint32_t type);
    uint32_t GetType() const { return m_impl->GetType(); }

    // 0; -1 for another format, for a size beyond the limits, and without memory.
    int32_t Process(FilterArgs* args) override;

    // Of copies that are made where the scaler cannot read or write the pictures themselves; else 0.
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
