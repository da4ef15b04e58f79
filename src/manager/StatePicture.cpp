#include "manager/StatePicture.h"

#include "present/OnScreenText.h"

namespace corvane {

void StatePicture::Draw(Pass& pass, const Look& look) {
    const PresentSettings& settings = pass.settings;
    WindowSink* const sink = pass.sinks.Of(settings.window);
    if (sink == nullptr)
        return;
    const WindowSink::State state = sink->Prepare();
    if (state != WindowSink::State::Ready && state != WindowSink::State::Hidden)
        return;    // the watch reports when that changes
    const WindowWatch::Size size = sink->Size();
    const Rect all{0, 0, size.width, size.height};
    if (m_memory.View().size != PictureSize{size.width, size.height} && !m_memory.Resize(size.width, size.height))
        return;
    if (look.logo != nullptr) {
        if (!Stretch(m_memory.View(), all, look.logo->View(), look.logo->View().Bounds()))
            return;
    } else {
        Fill(m_memory.View(), all, settings.background);
        const int64_t frameTime = look.frame != nullptr ? int64_t{look.frame->Header().timeSeconds} : 0;
        OsdRecord record(look.frame, look.wallTime ? m_clock.Wall() : frameTime, look.wallTime);
        record.info.width = size.width;
        record.info.height = size.height;
        record.info.counter = look.counter;
        record.info.flags = look.flags;
        const PictureMailbox::ClientCall call(pass.mailbox);
        record.Call(settings.osd, m_memory.View());
    }
    if (state != WindowSink::State::Ready)
        return;
    {
        const WindowSink::Writing writing = sink->Write();
        Blit(writing.Image(), 0, 0, m_memory.View(), all);
    }
    sink->Put({&all, 1});
}

}    // namespace corvane
