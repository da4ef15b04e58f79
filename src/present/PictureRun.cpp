#include "present/PictureRun.h"

#include <algorithm>
#include <vector>

namespace corvane {

namespace {

DecodedFrame Cropped(DecodedFrame decoded, const Rect& part) {
    const auto left = static_cast<size_t>(part.left);
    const auto top = static_cast<size_t>(part.top);
    const bool pairs = decoded.strides[2] == 0;    // of U and V in one plane
    decoded.width = static_cast<uint32_t>(part.Width());
    decoded.height = static_cast<uint32_t>(part.Height());
    decoded.planes[0] += top * decoded.strides[0] + left;
    decoded.planes[1] += top / 2 * decoded.strides[1] + (pairs ? left : left / 2);
    if (!pairs)
        decoded.planes[2] += top / 2 * decoded.strides[2] + left / 2;
    return decoded;
}

// What is written into a buffer by one run.
struct Writing {
    const PictureRequest& request;
    const DecodedFrame& decoded;
    const ChainSettings& settings;
    std::span<IStamp* const> due;
};

RunResult Write(FilterChain& chain, const Writing& writing, uint8_t* data, uint32_t stride, uint32_t format) {
    const PictureRequest& request = writing.request;
    const ChainResult run = chain.Run(writing.settings, request.frame, writing.decoded, data, stride, format,
                                      request.size.width, request.size.height, request.colours);
    for (IStamp* const stamp : writing.due)
        stamp->Draw(request.frame, LayOut(data, stride, request.size, format));
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
        rotate->OutputSize(size.width, size.height, &size.width, &size.height);
    return size;
}

RunResult PictureRun::Carry(const PictureRequest& request, const ChainSettings& settings, PictureTarget& target) {
    using Fate = RunResult::Fate;
    const DecodedFrame decoded = request.crop ? Cropped(request.decoded, *request.crop) : request.decoded;
    std::vector<IStamp*> due;
    std::ranges::copy_if(request.stamps, std::back_inserter(due),
                         [&](IStamp* stamp) { return stamp->Due(request.frame); });
    const Writing writing{request, decoded, settings, due};
    RotateFilter* const rotate = Rotation(request.angle);
    if (rotate == nullptr) {
        if (decoded.owner != nullptr && due.empty() &&
            m_chain.PassesThrough(settings, request.frame, decoded, request.size.width, request.size.height) &&
            target.Take(decoded))
            return {Fate::Carried};
        PictureLease lease = target.Lend(request.size.width, request.size.height,
                                         m_chain.PreferredFormat(settings, request.frame, decoded));
        if (!lease)
            return {Fate::LostNoBuffer};
        const RunResult result = Write(m_chain, writing, lease.data, lease.stride, lease.format);
        lease.Commit();
        return result;
    }
    const PictureSize box = RotatedSize(request.size, request.angle);
    // What cannot be turned is refused before a buffer is asked for, which may cost the picture before.
    uint8_t* upright = nullptr;
    uint32_t stride = 0;
    const auto allocate = [&](uint32_t format) {
        return rotate->Allocate(request.size.width, request.size.height, format, &upright, &stride) >= 0;
    };
    const uint32_t format = target.FormatFor(PF_I420);
    if (format != 0 && !allocate(format))
        return {Fate::LostNotRotatable};
    PictureLease lease = target.Lend(box.width, box.height, PF_I420);
    if (!lease)
        return {Fate::LostNoBuffer};
    if (lease.format != format && !allocate(lease.format))
        return {Fate::LostNotRotatable};
    const RunResult result = Write(m_chain, writing, upright, stride, lease.format);
    rotate->Rotate(lease.data, lease.stride, lease.format, box.width, box.height);
    lease.Commit();
    return result;
}

}    // namespace corvane
