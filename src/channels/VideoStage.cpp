#include "channels/VideoStage.h"

#include "channels/CountUnit.h"

namespace corvane {

VideoStage::VideoStage(CRenderMgr& render, bool fallbackAllowed) : m_render(render), m_counters(render.Counters()) {
    m_decoder.SetFallbackAllowed(fallbackAllowed);
}

void VideoStage::BeginRun() {
    m_thinner = FrameThinner();
    m_keyFramesOnly = false;
    m_lastKind = -1;
}

void VideoStage::Reset(bool backward) {
    ExclusiveLock lock(m_lock);
    m_decoder.Reset(backward);
    m_counters.NoteDecoder(0, 0);
}

// The second field of a key frame is decoded although it is no key frame itself.
bool VideoStage::CompletesPicture(const MediaFrameImpl& frame) {
    ExclusiveLock lock(m_lock);
    return m_decoder.Completes(frame);
}

bool VideoStage::Thinned(const MediaFrameImpl& frame, uint32_t mode) {
    if (m_keyFramesOnly && !frame.IsKeyFrame() && !CompletesPicture(frame))
        return true;
    m_keyFramesOnly = mode >= kKeyFramesOnly;
    return m_thinner.ShouldThin(frame.Header(), mode % kKeyFramesOnly);
}

bool VideoStage::Decode(FramePtr& frame, uint32_t mode, SharedPicture& picture) {
    CountAtEnd fate(m_counters, Counter::UnitsFailed, CORVANE_CAUSE_OUT_OF_MEMORY);
    if (Thinned(*frame, mode)) {
        fate.Is(Counter::FramesThinned, CORVANE_CAUSE_THINNED);
        return false;
    }
    uint32_t got = 0;
    uint32_t kind;
    {
        ExclusiveLock lock(m_lock);
        if (frame->IsKeyFrame() || m_decoder.ActiveKind() != 0)    // the software decoder depends on no display adapter
            m_decoder.SetAdapter(m_render.GetAdapterIndex());
        if (m_decoder.Decode(frame, &got) < 0)
            got = 0;
        kind = m_decoder.ActiveKind();
        m_counters.NoteDecoder(kind, m_decoder.ThreadsInUse());
        if (got != 0) {
            (void)m_decoder.CurrentInput(frame);
            picture = m_decoder.ShareCurrent();
        }
    }
    if (kind != m_lastKind) {
        m_lastKind = kind;
        m_render.SendDecoderKind(kind);
    }
    CountUnit(fate, m_decoder.LastOutcome());    // only this thread decodes
    if (got != 0 && frame->NotForDisplay())
        m_counters.AddLost(Counter::PicturesNotForDisplay, CORVANE_CAUSE_NOT_FOR_DISPLAY);
    return got != 0 && !frame->NotForDisplay();
}

}    // namespace corvane
