#include "present/PictureRun.h"

#include <algorithm>
#include <vector>

namespace corvane {

namespace {

// What is written into a buffer by one run.
struct Writing {
    const PictureRequest& request;
    const ConstPictureView& source;
    const ChainSettings& settings;
    std::span<IStamp* const> due;
};

RunResult Write(FilterChain& chain, const Writing& writing, const PictureView& to) {
    const MediaFrameImpl& frame = writing.request.frame;
    const ChainResult run = chain.Run(writing.settings, frame, writing.source, to);
    for (IStamp* const stamp : writing.due)
        stamp->Draw(frame, to);
    const bool stepFailed = run.status < 0 && run.smoothing != Smoothing::Refused;
    return {stepFailed ? RunResult::Fate::StepFailed : RunResult::Fate::Carried, run.smoothing};
}

}    // namespace

RotateFilter* PictureRun::Rotation(const std::optional<double>& angle) {
    if (!angle) {
        m_rotate.reset();
    } else if (m_rotate == nullptr) {
        m_rotate = std::make_unique<RotateFilter>(*angle);
        m_rotateAngle = *angle;
    } else if (m_rotateAngle != *angle) {
        m_rotate->SetAngle(*angle);
        m_rotateAngle = *angle;
    }
    return m_rotate.get();
}

PictureSize PictureRun::RotatedSize(PictureSize size, const std::optional<double>& angle) {
    if (const RotateFilter* const rotate = Rotation(angle))
        size = rotate->OutputSize(size);
    return size;
}

RunResult PictureRun::Carry(const PictureRequest& request, const ChainSettings& settings, PictureTarget& target) {
    using Fate = RunResult::Fate;
    const ConstPictureView source = request.crop ? request.picture.Part(*request.crop) : request.picture;
    std::vector<IStamp*> due;
    std::ranges::copy_if(request.stamps, std::back_inserter(due),
                         [&](IStamp* stamp) { return stamp->Due(request.frame); });
    const Writing writing{request, source, settings, due};
    RotateFilter* const rotate = Rotation(request.angle);
    if (rotate == nullptr) {
        const bool shared = request.shared != nullptr && request.shared->Shared() && !request.crop;
        if (shared && due.empty() && m_chain.PassesThrough(settings, request.frame, source, request.size) &&
            target.Take(*request.shared))
            return {Fate::Carried};
        PictureLease lease = target.Lend(request.size, m_chain.PreferredFormat(settings, request.frame, source));
        if (!lease)
            return {Fate::LostNoBuffer};
        const RunResult result = Write(m_chain, writing, lease.view);
        lease.Commit();
        return result;
    }
    // What cannot be rotated is refused before a buffer is asked for, which may cost the picture before.
    PictureView upright;
    if (const uint32_t format = target.FormatFor(PF_I420); format != 0) {
        upright = rotate->Lend(request.size, format);
        if (!upright)
            return {Fate::LostNotRotatable};
    }
    PictureLease lease = target.Lend(RotatedSize(request.size, request.angle), PF_I420);
    if (!lease)
        return {Fate::LostNoBuffer};
    if (lease.view.format != upright.format)
        upright = rotate->Lend(request.size, lease.view.format);
    if (!upright)
        return {Fate::LostNotRotatable};
    const RunResult result = Write(m_chain, writing, upright);
    rotate->Rotate(lease.view);
    lease.Commit();
    return result;
}

}    // namespace corvane
