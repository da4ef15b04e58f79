#include "present/PictureTarget.h"

namespace corvane {

bool CarryPicture(PictureTarget& target, FilterChain& chain, const ChainSettings& settings, RotateFilter* rotate,
                  const MediaFrameImpl& frame, const DecodedFrame& decoded, uint32_t width, uint32_t height) {
    if (rotate == nullptr) {
        if (decoded.owner != nullptr && chain.PassesThrough(settings, frame, decoded, width, height) &&
            target.Take(decoded))
            return true;
        PictureLease lease = target.Lend(width, height, chain.PreferredFormat(settings, frame, decoded));
        if (!lease)
            return false;
        (void)chain.Run(settings, frame, decoded, lease.data, lease.stride, lease.format, width, height);
        lease.Commit();    // what is drawn over a finished picture is drawn before this, and below before the rotation
        return true;
    }
    uint32_t outWidth = 0;
    uint32_t outHeight = 0;
    rotate->OutputSize(width, height, &outWidth, &outHeight);
    PictureLease lease = target.Lend(outWidth, outHeight, PF_I420);
    if (!lease)
        return false;
    uint8_t* upright = nullptr;
    uint32_t stride = 0;
    if (rotate->Allocate(width, height, lease.format, &upright, &stride) < 0) {
        lease.GiveBack();
        return false;
    }
    (void)chain.Run(settings, frame, decoded, upright, stride, lease.format, width, height);
    rotate->Rotate(lease.data, lease.stride, lease.format, outWidth, outHeight);
    lease.Commit();
    return true;
}

}    // namespace corvane
