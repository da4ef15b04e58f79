// Raw pictures: the decoded picture in a format of the client's choice, beside the display. A consumer of the picture
// run with a run and a maker of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "base/CallGate.h"
#include "picture/PictureMaker.h"
#include "present/FinishedPicture.h"
#include "present/PictureMailbox.h"
#include "present/PictureRun.h"
#include "present/PresentSettings.h"
#include "present/RawClient.h"

namespace corvane {

// Render thread only.
class RawDelivery {
public:
    // `filterCalls`: entered while client filters may run.
    RawDelivery(RawClient& client, CallGate& filterCalls) : m_client(client), m_filterCalls(filterCalls) {}

    // Calls the raw callback with the decoded picture, where one is held, and again while the client asks for it and
    // `goesOn` holds. Nothing is delivered without a maker of the format, or without memory. `current`: the settings,
    // asked for each repetition.
    void Deliver(const FinishedPicture& picture, PictureMailbox* mailbox,
                 const std::function<PresentSettingsPtr()>& current, const std::function<bool()>& goesOn);
    // Frees the maker and the scratch memory of the run.
    void Free();

private:
    bool Make(const FinishedPicture& picture, const PresentSettings& settings, uint32_t format, uint32_t prefix);

    RawClient& m_client;
    CallGate& m_filterCalls;
    std::unique_ptr<PictureRun> m_run;
    PictureMakerPtr m_maker;
    uint32_t m_format = 0;    // of m_maker
};

}    // namespace corvane
