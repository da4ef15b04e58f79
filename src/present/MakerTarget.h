// The buffer of a picture maker as a target, or memory that its output shall lie in.
#pragma once

#include "picture/PictureMaker.h"
#include "present/PictureTarget.h"

namespace corvane {

class MakerTarget final : public PictureTarget {
public:
    // `output`: null, or room for the output with its prefix, which is lent where the pixels lie there as they do in a
    // buffer (IPictureMaker::Over).
    explicit MakerTarget(IPictureMaker& maker, uint8_t* output = nullptr) : m_maker(maker), m_output(output) {}
    PictureLease Lend(PictureSize size, uint32_t) override {
        PictureView view;
        if (m_output != nullptr)
            view = m_maker.Over(size, m_output);
        m_lentOver = static_cast<bool>(view);
        if (m_lentOver) {
            m_result = Status::Ok;
            return {this, view};
        }
        m_result = m_maker.GetBuffer(size, view);
        return Ok(m_result) ? PictureLease(this, view) : PictureLease();
    }
    // The maker's status of the last Lend.
    Status Result() const { return m_result; }
    // Whether it lent `output`, which is then the whole output.
    bool LentOver() const { return m_lentOver; }

private:
    void Finish(bool) override {}

    IPictureMaker& m_maker;
    uint8_t* const m_output;
    bool m_lentOver = false;
    Status m_result = Status::Failed;
};

}    // namespace corvane
