// The buffer of a picture maker as a target.
#pragma once

#include "picture/PictureMaker.h"
#include "present/PictureTarget.h"

namespace corvane {

class MakerTarget final : public PictureTarget {
public:
    explicit MakerTarget(IPictureMaker& maker) : m_maker(maker) {}
    PictureLease Lend(PictureSize size, uint32_t) override {
        PictureView view;
        m_result = m_maker.GetBuffer(size, view);
        return Ok(m_result) ? PictureLease(this, view) : PictureLease();
    }
    // The maker's status of the last Lend.
    Status Result() const { return m_result; }

private:
    void Finish(bool) override {}

    IPictureMaker& m_maker;
    Status m_result = Status::Failed;
};

}    // namespace corvane
