// The settings side of a live channel: creation record, update record and numbered options.
#include "channels/ChannelLive.h"

namespace corvane {

namespace {

constexpr uint32_t kMaxVolume = 5000;

}    // namespace

void CChannelLive::Apply(const ChannelSettings& settings) {
    const auto has = [&](uint32_t bit) { return (settings.mask & bit) != 0; };
    if (has(0x0010)) {
        MutexLock lock(m_settingsMutex);
        m_volume = settings.volume < kMaxVolume ? settings.volume : kMaxVolume;
    }
    if (has(0x0020))
        m_render.SetMargin(&Edges::left, settings.marginLeft);
    if (has(0x0040))
        m_render.SetMargin(&Edges::right, settings.marginRight);
    if (has(0x0080))
        m_render.SetMargin(&Edges::top, settings.marginTop);
    if (has(0x0100))
        m_render.SetMargin(&Edges::bottom, settings.marginBottom);
    if (has(0x0200))
        (void)m_render.SetLogoBitmap(reinterpret_cast<struct _cairo_surface*>(settings.logo));    // unfit: no logo
    if (has(0x2000))
        m_render.SetPresentEnabled(settings.presentEnabled != 0);
    if (has(0x4000)) {
        MutexLock lock(m_settingsMutex);
        m_audioEnabled = settings.audioEnabled != 0;
    }
    if (settings.hasBorder != 0)
        m_render.SetBorder(Edges{settings.border[0], settings.border[2], settings.border[1], settings.border[3]});
}

Status CChannelLive::Update(const ChannelUpdate& update) {
    const auto has = [&](uint32_t bit) { return (update.mask & bit) != 0; };
    if (has(0x0800) && update.window == 0)
        return Status::InvalidArgument;
    if (has(0x0001))
        m_render.SetPresentEnabled(update.presentEnabled != 0);
    {
        MutexLock lock(m_settingsMutex);
        if (has(0x0002))
            m_audioEnabled = update.audioEnabled != 0;
        if (has(0x0020))
            m_volume = update.volume < kMaxVolume ? update.volume : kMaxVolume;
        if (has(0x0040))
            m_mediaMode = update.mediaMode;
    }
    if (has(0x0400))
        m_render.ResetToStopped();
    if (has(0x0800))
        m_render.SetWindow(update.window);
    if (has(0x1000))
        m_render.SetWindow(0);
    if (has(0x2000))
        m_render.SetFullWindow(update.fullWindow != 0);
    return Status::Ok;
}

Status CChannelLive::SetOption(int32_t id, uint64_t value, uint64_t extra) {
    const uint32_t number = static_cast<uint32_t>(value);
    switch (id) {
    case 3:
        m_render.SetNoBorder(value == 0);
        return Status::Ok;
    case 7:
        m_render.SetMargin(&Edges::left, number);
        return Status::Ok;
    case 8:
        m_render.SetMargin(&Edges::right, number);
        return Status::Ok;
    case 9:
        m_render.SetMargin(&Edges::top, number);
        return Status::Ok;
    case 10:
        m_render.SetMargin(&Edges::bottom, number);
        return Status::Ok;
    case 11:
        if (value == 0)
            return Status::InvalidArgument;
        return m_render.SetDisplayArea(*reinterpret_cast<const DisplayArea*>(value), static_cast<uint32_t>(extra));
    case 13: {
        MutexLock lock(m_settingsMutex);
        m_mediaMode = number;
        return Status::Ok;
    }
    case 17:
        m_stills.SetQuality(number);
        return Status::Ok;
    case 25:
        return value != 0 ? m_render.SetLogoFile(reinterpret_cast<const char*>(value)) : Status::Failed;
    case 26:
        return m_render.SetLogoBitmap(reinterpret_cast<struct _cairo_surface*>(value));
    case 31: {
        JitterQueue::Entries removed;    // freed outside the lock
        MutexLock lock(m_mutex);
        removed = m_queue.Clear();
        m_counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, removed.size());
        m_spaceReady.NotifyAll();
        return Status::Ok;
    }
    case 35:
        m_render.SetDeinterlace(value != 0);
        return Status::Ok;
    case 42: {
        MutexLock lock(m_mutex);
        MutexLock settings(m_settingsMutex);
        m_blockWhenFull = value == 0;
        m_spaceReady.NotifyAll();    // producers that wait look again
        return Status::Ok;
    }
    case 45:
        m_render.SetOsdPolicy(number);
        return Status::Ok;
    case 46:
        m_decoder.SetH264Kind(number);
        return Status::Ok;
    case 47:
        return Status::Ok;
    case 48:
        m_decoder.SetThreads(number);
        return Status::Ok;
    case 52:
        m_decoder.SetMpeg4Kind(number);
        return Status::Ok;
    case 53:
        m_decoder.SetHevcKind(number);
        return Status::Ok;
    case 55:
        m_decoder.SetBackwardMemoryMode(number);
        return Status::Ok;
    case 56:
        m_stills.SetOverlay(reinterpret_cast<CorvaneOsdCallback>(value), reinterpret_cast<void*>(extra));
        return Status::Ok;
    case 57:
        m_render.SetResizeType(number);
        return Status::Ok;
    default:
        return Status::NotSupported;
    }
}

void CChannelLive::SetBufferTime(uint32_t milliseconds) {
    MutexLock lock(m_mutex);
    m_queue.SetBufferTime(milliseconds);
}

void CChannelLive::SetDisplayMode(uint32_t mode) {
    if (mode > 8)
        return;
    MutexLock lock(m_mutex);
    m_displayMode = mode == 0 ? 0 : mode == 1 ? 8 : mode - 1;
}

bool CChannelLive::IsBuffering() {
    MutexLock lock(m_mutex);
    return m_queue.IsBuffering();
}

}    // namespace corvane
