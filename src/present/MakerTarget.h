// The buffer of a picture maker as a target.
#pragma once

#include "picture/PictureMaker.h"
#include "present/PictureTarget.h"

namespace corvane {

class MakerTarget final : public PictureTarget {
public:
    explicit MakerTarget(IPictureMaker& maker) : m_maker(maker) {}
    PictureLease Lend(uint32_t width, uint32_t height, uint32_t) override {
        uint8_t* buffer = nullptr;
        uint32_t stride = 0;
        uint32_t format = 0;
        m_result = m_maker.GetBuffer(width, height, &buffer, &stride, &format);
        return m_result < 0 ? PictureLease() : PictureLease(this, buffer, stride, format);
    }
    // What the maker said to the last wish for a buffer; negative where it gave none.
    int32_t Result() const { return m_result; }

private:
    void Finish(bool) override {}

    IPictureMaker& m_maker;
    int32_t m_result = -1;
};

}    // namespace corvane
