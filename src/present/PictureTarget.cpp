#include "present/PictureTarget.h"

namespace corvane {

namespace {

CarryResult Committed(const ChainResult& run) {
    const bool stepFailed = run.status < 0 && run.smoothing != Smoothing::Refused;
    return {stepFailed ? CarryResult::Fate::StepFailed : CarryResult::Fate::Carried, run.smoothing};
}

}    // namespace

CarryResult CarryPicture(PictureTarget& target, FilterChain& chain, const ChainSettings& settings, RotateFilter* rotate,
                         const MediaFrameImpl& frame, const DecodedFrame& decoded, uint32_t width, uint32_t height) {
    using Fate = CarryResult::Fate;
    if (rotate == nullptr) {
        if (decoded.owner != nullptr && chain.PassesThrough(settings, frame, decoded, width, height) &&
            target.Take(decoded))
            return {Fate::Carried};
        PictureLease lease = target.Lend(width, height, chain.PreferredFormat(settings, frame, decoded));
        if (!lease)
            return {Fate::LostNoBuffer};
        const ChainResult run =
            chain.Run(settings, frame, decoded, lease.data, lease.stride, lease.format, width, height);
        lease.Commit();    // what is drawn over a finished picture is drawn before this, and below before the rotation
        return Committed(run);
    }
    uint32_t outWidth = 0;
    uint32_t outHeight = 0;
    rotate->OutputSize(width, height, &outWidth, &outHeight);
    PictureLease lease = target.Lend(outWidth, outHeight, PF_I420);
    if (!lease)
        return {Fate::LostNoBuffer};
    uint8_t* upright = nullptr;
    uint32_t stride = 0;
    if (rotate->Allocate(width, height, lease.format, &upright, &stride) < 0) {
        lease.GiveBack();
        return {Fate::LostNotRotatable};
    }
    const ChainResult run = chain.Run(settings, frame, decoded, upright, stride, lease.format, width, height);
    rotate->Rotate(lease.data, lease.stride, lease.format, outWidth, outHeight);
    lease.Commit();
    return Committed(run);
}

}    // namespace corvane
