// The settings of a channel that carries a stream: from its creation record, its update record and its options.
#include "channels/Options.h"
#include "channels/StreamChannel.h"

namespace corvane {

void StreamChannel::Apply(const ChannelSettings& settings) {
    const auto has = [&](uint32_t bit) { return (settings.mask & bit) != 0; };
    if (has(CORVANE_SETTINGS_VOLUME))
        m_render.Sound().SetVolume(static_cast<int32_t>(settings.volume));
    if (has(CORVANE_SETTINGS_MARGIN_LEFT))
        m_render.SetMargin(&Edges::left, settings.marginLeft);
    if (has(CORVANE_SETTINGS_MARGIN_RIGHT))
        m_render.SetMargin(&Edges::right, settings.marginRight);
    if (has(CORVANE_SETTINGS_MARGIN_TOP))
        m_render.SetMargin(&Edges::top, settings.marginTop);
    if (has(CORVANE_SETTINGS_MARGIN_BOTTOM))
        m_render.SetMargin(&Edges::bottom, settings.marginBottom);
    if (has(CORVANE_SETTINGS_LOGO))
        (void)m_render.SetLogoBitmap(reinterpret_cast<struct _cairo_surface*>(
            settings.logo));    // Failed, for no image: the channel has no logo
    if (has(CORVANE_SETTINGS_PRESENT))
        m_render.SetPresentEnabled(settings.presentEnabled != 0);
    if (has(CORVANE_SETTINGS_AUDIO))
        m_render.EnableSound(settings.audioEnabled != 0);
    if (settings.hasBorder != 0)
        m_render.SetBorder(Edges{settings.border[0], settings.border[2], settings.border[1], settings.border[3]});
}

Status StreamChannel::Update(const ChannelUpdate& update) {
    const auto has = [&](uint32_t bit) { return (update.mask & bit) != 0; };
    if (has(CORVANE_UPDATE_WINDOW) && update.window == 0)
        return Status::InvalidArgument;
    if (has(CORVANE_UPDATE_PRESENT))
        m_render.SetPresentEnabled(update.presentEnabled != 0);
    if (has(CORVANE_UPDATE_AUDIO))
        m_render.EnableSound(update.audioEnabled != 0);
    if (has(CORVANE_UPDATE_VOLUME))
        m_render.Sound().SetVolume(static_cast<int32_t>(update.volume));
    if (has(CORVANE_UPDATE_MEDIA_MODE))
        m_mediaMode = update.mediaMode;
    if (has(CORVANE_UPDATE_DROP_PICTURE))
        m_render.ResetToStopped();
    if (has(CORVANE_UPDATE_WINDOW))
        m_render.SetWindow(update.window);
    if (has(CORVANE_UPDATE_NO_WINDOW))
        m_render.SetWindow(0);
    if (has(CORVANE_UPDATE_FULL_WINDOW))
        m_render.SetFullWindow(update.fullWindow != 0);
    return Status::Ok;
}

Status StreamChannel::SetOption(int32_t id, uint64_t value, uint64_t extra) {
    OptionTargets targets{.stream = this, .raw = &m_render.Raw(), .video = &m_video.Settings()};
    return ApplyOption(GetChannelType(), targets, id, value, extra);
}

void StreamChannel::SetBlockWhenFull(bool on) {
    MutexLock lock(m_mutex);
    MutexLock settings(m_settingsMutex);
    m_blockWhenFull = on;
    m_spaceReady.NotifyAll();    // waiting producers check the new setting
}

void StreamChannel::EmptyQueue() {
    JitterQueue::Entries removed;    // freed outside the lock
    MutexLock lock(m_mutex);
    removed = m_queue.Clear();
    m_counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, removed.size());
    m_spaceReady.NotifyAll();
}

void StreamChannel::SetBufferTime(uint32_t milliseconds) {
    MutexLock lock(m_mutex);
    m_queue.SetBufferTime(milliseconds);
}

void StreamChannel::SetDisplayMode(uint32_t mode) {
    if (mode > CORVANE_DISPLAY_THIN_MOST)
        return;
    MutexLock lock(m_mutex);
    m_displayMode = mode == CORVANE_DISPLAY_ALL          ? 0
                    : mode == CORVANE_DISPLAY_KEY_FRAMES ? VideoStage::kKeyFramesOnly
                                                         : mode - 1;
}

bool StreamChannel::IsBuffering() {
    MutexLock lock(m_mutex);
    return m_queue.IsBuffering();
}

}    // namespace corvane
