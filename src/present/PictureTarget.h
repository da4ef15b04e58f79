// The place where a picture is made: a buffer of a renderer or of a picture maker. The target lends the buffer as a
// lease. A lease that is destroyed without Commit gives the buffer back.
#pragma once

#include <cstdint>
#include <utility>

#include "base/PictureView.h"
#include "base/SharedPicture.h"

namespace corvane {

class PictureTarget;

class PictureLease {
public:
    PictureLease() = default;
    PictureLease(PictureTarget* target, const PictureView& lent) : view(lent), m_target(target) {}
    PictureLease(PictureLease&& other) noexcept
        : view(other.view), m_target(std::exchange(other.m_target, nullptr)), m_commit(other.m_commit) {}
    PictureLease& operator=(PictureLease&&) = delete;
    ~PictureLease();

    explicit operator bool() const { return m_target != nullptr; }
    void Commit() { m_commit = true; }

    PictureView view;

private:
    PictureTarget* m_target = nullptr;
    bool m_commit = false;
};

class PictureTarget {
public:
    virtual ~PictureTarget() = default;
    // Takes a reference on a shared picture instead of lending a buffer for a copy, and commits it. False: the target
    // does not, and nothing happened.
    virtual bool Take(const SharedPicture& /*picture*/) { return false; }
    // The format, as it lies in memory, of a buffer for this wish; 0 where only Lend decides.
    virtual uint32_t FormatFor(uint32_t /*preferred*/) const { return 0; }
    // An empty lease when there is no buffer.
    virtual PictureLease Lend(PictureSize size, uint32_t preferredFormat) = 0;

private:
    friend class PictureLease;
    virtual void Finish(bool commit) = 0;
};

inline PictureLease::~PictureLease() {
    if (m_target != nullptr)
        m_target->Finish(m_commit);
}

}    // namespace corvane
