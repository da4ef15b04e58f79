#include "manager/StreamInfo.h"

#include <algorithm>

namespace corvane {

namespace {

struct Sender {
    const ClientCallback<CorvaneStreamInfoCallback>& callback;

    void operator()(uint32_t code, uint64_t a, uint64_t b) const { callback(code, a, b); }
    void operator()(uint32_t code, uint64_t a, const void* b) const {
        callback(code, a, reinterpret_cast<uint64_t>(b));
    }
};

void ReportLens(const Sender& send, const MediaFrameImpl& frame, const MediaFrameImpl* previous) {
    const FisheyeCalibration* now = frame.Fisheye();
    const FisheyeCalibration* before = previous != nullptr ? previous->Fisheye() : nullptr;
    if (now == nullptr) {
        if (previous == nullptr || before != nullptr)
            send(CORVANE_INFO_LENS_CIRCLE, 0, uint64_t{0});
        return;
    }
    const bool kindChanged = before == nullptr || before->lensKind != now->lensKind;
    const bool mountChanged = before == nullptr || before->mountFlag != now->mountFlag;
    if (kindChanged && now->lensKind <= 2)
        send(CORVANE_INFO_LENS_KIND, now->lensKind + 1u, uint64_t{0});
    if (mountChanged)
        send(CORVANE_INFO_MOUNT, now->mountFlag != 0 ? 2 : 1, uint64_t{0});
    if (kindChanged || mountChanged || before->centerX != now->centerX || before->centerY != now->centerY ||
        before->radius != now->radius) {
        const FisheyeInfo info{now->mountFlag, now->lensKind, now->centerX, now->centerY, now->radius};
        send(CORVANE_INFO_LENS_CIRCLE, 1, &info);
    }
}

void ReportMotion(const Sender& send, const MediaFrameHeader& header) {
    constexpr uint32_t kSlots = 16;
    MotionEntry entries[kSlots] = {};
    uint32_t count = 3;
    if (header.objectCount != 0) {
        for (uint32_t i = 0; i < header.objectCount; ++i) {
            const ObjectRecord& object = header.objects[i];
            count = object.id;
            if (object.valid != 0 && object.id >= 1 && object.id <= kSlots)
                entries[object.id - 1] = MotionEntry{object.level, 0, object.value};
        }
        count = std::min(count, kSlots);    // the camera states the id, and the client reads `count` entries
    } else {
        for (uint32_t i = 0; i < 3; ++i)
            if (header.motionState[i] < 2)
                entries[i] = MotionEntry{header.motionId[i], 0, header.motionAlert[i]};
    }
    send(CORVANE_INFO_MOTION, reinterpret_cast<uint64_t>(entries), uint64_t{count});
}

}    // namespace

void ReportStreamInfo(const ClientCallback<CorvaneStreamInfoCallback>& callback, const MediaFrameImpl& frame,
                      const MediaFrameImpl* previous, bool resized, bool dirty, PictureSize shown) {
    const Sender send{callback};
    const MediaFrameHeader& header = frame.Header();
    ReportLens(send, frame, previous);
    if (dirty || (frame.IsKeyFrame() && resized))
        send(CORVANE_INFO_SIZE, shown.width, uint64_t{shown.height});
    ReportMotion(send, header);
    send(CORVANE_INFO_FRAME, (header.reservedTail >> 32) == 0 ? 1 : 0, &header);
    if (dirty)
        send(CORVANE_INFO_FRESH, 0, uint64_t{0});
}

}    // namespace corvane
