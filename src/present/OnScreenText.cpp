#include "present/OnScreenText.h"

#include "platform/raster/DrawContext.h"

namespace corvane {

bool TextDue(uint32_t policy, const TextTimes& last, int64_t wall, const MediaFrameImpl& frame) {
    return ((policy & CORVANE_TEXT_WALL_CLOCK) != 0 && wall != last.wall) ||
           ((policy & CORVANE_TEXT_FRAME) != 0 && frame.Header().timeSeconds != last.timeSeconds) ||
           ((policy & CORVANE_TEXT_PRESENT_TIME) != 0 && frame.PresentTime().seconds != last.presentSeconds) ||
           ((policy & CORVANE_TEXT_BASE_TIME) != 0 && frame.BaseTime().seconds != last.baseSeconds);
}

OsdRecord::OsdRecord(const MediaFrameImpl* frame, int64_t seconds, bool local) {
    const time_t from = static_cast<time_t>(seconds);
    if (local)
        localtime_r(&from, &m_time);
    else
        gmtime_r(&from, &m_time);
    info.time = &m_time;
    info.timeSeconds = static_cast<uint32_t>(seconds);
    if (frame == nullptr)
        return;
    const MediaFrameHeader& header = frame->Header();
    info.presentTime = frame->PresentTime();
    info.baseTime = frame->BaseTime();
    info.streamSeconds = header.streamSeconds;
    info.timeMilliseconds = header.timeMilliseconds;
    info.timeZone = TimeZoneCode(header);
    info.daylight = static_cast<uint16_t>(header.daylight);
}

void OsdRecord::Call(const ClientCallback<CorvaneOsdCallback>& callback, const PictureView& picture) {
    if (!callback)
        return;
    const DrawContext drawing(picture, info.width, info.height);
    if (drawing.Get() == nullptr)
        return;
    info.deviceContext = drawing.Get();
    callback(&info);
}

void OsdRecord::CallIn(Pass& pass, const PictureView& picture) {
    if (pass.flags.textFresh)
        info.flags |= CORVANE_OSD_FRESH;
    pass.textTold = true;
    const PictureMailbox::ClientCall call(pass.mailbox);
    Call(pass.settings.osd, picture);
}

}    // namespace corvane
