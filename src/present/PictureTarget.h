// Where a finished picture goes: a renderer, a still, a raw delivery. The target lends a buffer as a lease; the lease
// commits when told so and gives up otherwise.
#pragma once

#include <cstdint>
#include <utility>

#include "corvane/decoder.h"
#include "filters/FilterChain.h"
#include "filters/RotateFilter.h"

namespace corvane {

class PictureTarget;

class PictureLease {
public:
    PictureLease() = default;
    PictureLease(PictureTarget* target, uint8_t* lentData, uint32_t lentStride, uint32_t lentFormat)
        : data(lentData), stride(lentStride), format(lentFormat), m_target(target) {}
    PictureLease(PictureLease&& other) noexcept
        : data(other.data),
          stride(other.stride),
          format(other.format),
          m_target(std::exchange(other.m_target, nullptr)),
          m_end(other.m_end) {}
    PictureLease& operator=(PictureLease&&) = delete;
    ~PictureLease();

    explicit operator bool() const { return m_target != nullptr; }
    // What becomes of the buffer at the end of the lease. GiveBack: nothing was written into it.
    void Commit() { m_end = End::Commit; }
    void GiveBack() { m_end = End::GiveBack; }

    uint8_t* data = nullptr;
    uint32_t stride = 0;    // bytes
    uint32_t format = 0;    // PF_*

private:
    enum class End : uint8_t { GiveUp, GiveBack, Commit };

    PictureTarget* m_target = nullptr;
    End m_end = End::GiveUp;
};

class PictureTarget {
public:
    virtual ~PictureTarget() = default;
    // Takes a shared picture as it is, in the place of a buffer that would be a copy of it, and commits it. False: it
    // does not, and nothing happened.
    virtual bool Take(const DecodedFrame& /*picture*/) { return false; }
    // An empty lease when there is no buffer.
    virtual PictureLease Lend(uint32_t width, uint32_t height, uint32_t preferredFormat) = 0;

private:
    friend class PictureLease;
    virtual void Finish(bool commit) = 0;
    virtual void TakeBack() { Finish(false); }    // untouched
};

inline PictureLease::~PictureLease() {
    if (m_target == nullptr)
        return;
    if (m_end == End::GiveBack)
        m_target->TakeBack();
    else
        m_target->Finish(m_end == End::Commit);
}

// What became of one picture.
struct [[nodiscard]] CarryResult {
    enum class Fate : uint8_t {
        Carried,             // committed or taken; with `smoothing` Refused the chain ended at the smoothing
        StepFailed,          // committed with what the buffer holds: a step other than the smoothing failed
        LostNoBuffer,        // the target lent nothing
        LostNotRotatable,    // the target's format cannot be rotated, or there is no memory for it
    };

    Fate fate;
    Smoothing smoothing = Smoothing::None;

    bool Lost() const { return fate == Fate::LostNoBuffer || fate == Fate::LostNotRotatable; }
};

// Carries one decoded picture through the chain (and the rotate filter, where there is one) into `target`, at the size
// given; a shared picture that only passes through goes by reference where the target takes it. A failing step of the
// chain loses nothing but its own work.
CarryResult CarryPicture(PictureTarget& target, FilterChain& chain, const ChainSettings& settings, RotateFilter* rotate,
                         const MediaFrameImpl& frame, const DecodedFrame& decoded, uint32_t width, uint32_t height);

}    // namespace corvane
