// Raw data: the decoded picture in a format of the client's choice, beside the display, and decoded sound. A consumer
// of the picture run with a run and a maker of its own.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "filters/FilterChain.h"
#include "picture/PictureMaker.h"
#include "present/FinishedPicture.h"
#include "present/PictureCopies.h"
#include "present/PictureMailbox.h"
#include "present/PictureRun.h"
#include "present/PresentSettings.h"
#include "present/RawClient.h"

namespace corvane {

class RawDelivery {
public:
    // `filters`: of the channel, which other runs call as well.
    explicit RawDelivery(ClientFilterCalls& filters) : m_filters(filters) {}

    // ---- Any thread ----

    RawClient& Client() { return m_client; }
    // Between End and Begin nothing is delivered. End and Cut end the repetitions of a picture, and the wait for a
    // turn.
    void Begin() { m_running = true; }
    void End();
    void Cut();
    // Waits for the end of a running call, not on a thread of the library.
    void AwaitCall() { m_client.AwaitCall(); }

    // ---- The worker ----

    // What a FinishedPicture carries beside a lent buffer: a reference on `decoded`, or a copy where its decoder does
    // not share it; empty where the client wants no pictures.
    SharedPicture Keep(const SharedPicture& decoded);

    // ---- The render thread ----

    // The next Deliver has another picture.
    void OnFresh() { m_due = true; }
    // Calls the raw callback, once for each picture and again while the client asks for it. Nothing is delivered
    // without the decoder's picture, a maker of the format, or memory. `current`: the settings, asked for each
    // repetition.
    void Deliver(const FinishedPicture& picture, PictureMailbox* mailbox,
                 const std::function<PresentSettingsPtr()>& current);

    // ---- The thread of the sound device ----

    // Calls the raw callback with decoded samples of `frame`. `goesOn`: as in RawClient::Turn.
    void DeliverSound(const MediaFrameImpl& frame, const uint8_t* samples, uint32_t bytes,
                      const std::function<bool()>& goesOn);

private:
    bool Make(const FinishedPicture& picture, const PresentSettings& settings, uint32_t format, uint32_t prefix);

    ClientFilterCalls& m_filters;
    RawClient m_client;
    std::atomic<bool> m_running{false};
    std::atomic<uint32_t> m_cuts{0};
    PictureCopies m_copies;    // only on the worker
    // Only on the render thread. Maker and run are kept between pictures while the client wants them.
    std::unique_ptr<PictureRun> m_run;
    PictureMakerPtr m_maker;
    uint32_t m_format = 0;    // of m_maker
    bool m_due = false;
};

}    // namespace corvane
