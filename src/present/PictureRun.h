// The path from a decoded picture to a finished picture: crop, chain, stamps, rotation, target. Each consumer (a
// renderer, a still, a raw delivery, a decoder channel) has its own run, with its own scratch memory.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "base/PictureView.h"
#include "base/Rectangle.h"
#include "filters/FilterChain.h"
#include "filters/RotateFilter.h"
#include "present/PictureTarget.h"

namespace corvane {

// A drawing over a finished picture, before the rotation. A stamp that is due keeps a picture from passing by
// reference, since nothing may be drawn into a decoder's picture.
class IStamp {
public:
    virtual ~IStamp() = default;
    // Asked once for each picture.
    virtual bool Due(const MediaFrameImpl& frame) = 0;
    virtual void Draw(const MediaFrameImpl& frame, const PictureView& picture) = 0;
};

struct PictureRequest {
    const MediaFrameImpl& frame;
    ConstPictureView picture;                 // its colours are those that count
    const SharedPicture* shared = nullptr;    // the same picture, where it may go by reference
    PictureSize size;                         // of the picture to make, before it is rotated
    std::optional<Rect> crop{};               // the part of the picture that is used: even edges, inside it
    std::optional<double> angle{};            // degrees; without a value nothing is rotated
    std::span<IStamp* const> stamps{};
};

// The result for one picture.
struct [[nodiscard]] RunResult {
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

class PictureRun {
public:
    // Makes, updates or drops the dewarp stage. Called before the other functions, for each frame.
    void Follow(const MediaFrameImpl& frame) { m_chain.UpdateDewarp(frame); }

    // See FilterChain::OutputSize.
    int32_t OutputSize(PictureSize& size) { return m_chain.OutputSize(size); }
    // The box around a picture of this size that is rotated by `angle`.
    PictureSize RotatedSize(PictureSize size, const std::optional<double>& angle);

    // Makes the picture in a buffer of `target`. A shared picture that no crop, step, stamp or rotation changes goes by
    // reference where the target takes it. A failing step of the chain costs only its own work.
    RunResult Carry(const PictureRequest& request, const ChainSettings& settings, PictureTarget& target);

private:
    RotateFilter* Rotation(const std::optional<double>& angle);

    FilterChain m_chain;
    std::unique_ptr<RotateFilter> m_rotate;
    double m_rotateAngle = 0;
};

}    // namespace corvane
