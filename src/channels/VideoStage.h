// Decodes the video of a channel: drops frames by the display mode, follows the display adapter, decodes, and reports
// the kind of decoder to the client. It owns the current picture, which any thread may use.
#pragma once

#include <cstdint>

#include "base/Mutex.h"
#include "base/SharedPicture.h"
#include "base/Status.h"
#include "base/Thread.h"
#include "decoders/FrameThinner.h"
#include "decoders/VideoDecoderHolder.h"
#include "frame/ChannelCounters.h"
#include "frame/MediaFrameImpl.h"
#include "manager/RenderMgr.h"

namespace corvane {

class VideoStage {
public:
    VideoStage(CRenderMgr& render, bool fallbackAllowed);

    // ---- Any thread ----

    // The settings of the next decoder; its setters do not wait for a decode.
    VideoDecoderHolder& Settings() { return m_decoder; }

    // Calls `use(frame, picture)` with the current picture and the frame that it came from, and returns its status.
    // Status::Failed where there is no picture, and in the code of a plug-in, which may run under this lock. Waits for
    // a decode in progress. No lock is held while `use` runs, unless the decoder does not share its pictures: then
    // `use` runs under the decoder lock, since the next decode would overwrite the picture.
    template <typename Use>
    Status UseCurrent(Use&& use) const {
        if (Thread::InPlugin())
            return Status::Failed;
        FramePtr frame;
        SharedPicture picture;
        {
            SharedLock lock(m_lock);
            if (!m_decoder.CurrentInput(frame))
                return Status::Failed;
            picture = m_decoder.ShareCurrent();
            if (!picture.Shared())
                return use(frame, picture);
        }
        return use(frame, picture);
    }

    // ---- The worker ----

    static constexpr uint32_t kKeyFramesOnly = 8;    // for `mode`; 0: all frames; 1 to 7: a level of FrameThinner

    void BeginRun();
    // False: there is nothing to present, which is counted. True: `frame` becomes the one that the picture came from.
    bool Decode(FramePtr& frame, uint32_t mode, SharedPicture& picture);

    // ---- After the worker was joined ----

    void Reset(bool backward);

private:
    bool Thinned(const MediaFrameImpl& frame, uint32_t mode);
    bool CompletesPicture(const MediaFrameImpl& frame);

    CRenderMgr& m_render;
    ChannelCounters& m_counters;    // brings its own lock

    // Exclusive for decoding and resets, shared to look at the current picture.
    mutable SharedMutex m_lock;
    VideoDecoderHolder m_decoder;

    // Only on the worker, of one run.
    FrameThinner m_thinner;
    bool m_keyFramesOnly = false;
    int64_t m_lastKind = -1;
};

}    // namespace corvane
