// Raw pictures: the decoded picture in a format of the client's choice, beside the display. A consumer of the picture
// run with a run and a maker of its own.
#pragma once

#include <cstdint>
#include <functional>

#include "base/CallGate.h"
#include "picture/PictureMaker.h"
#include "present/FinishedPicture.h"
#include "present/PictureMailbox.h"
#include "present/PictureRun.h"
#include "present/PresentSettings.h"

namespace corvane {

// Render thread only.
class RawDelivery {
public:
    // `settings`: the current settings, for each repetition anew. `filterCalls`: entered while client filters may run.
    RawDelivery(std::function<PresentSettingsPtr()> settings, CallGate& filterCalls)
        : m_settings(std::move(settings)), m_filterCalls(filterCalls) {}

    // Calls the raw callback with the decoded picture, where there are both, and again while the client asks for it and
    // `goesOn` holds. Nothing is delivered without a maker of the format or memory.
    void Deliver(const FinishedPicture& picture, PictureMailbox* mailbox, const std::function<bool()>& goesOn);
    // Frees the maker and the scratch memory of the run.
    void Free();

private:
    bool Make(const FinishedPicture& picture, uint32_t format, const std::function<bool()>& goesOn);

    const std::function<PresentSettingsPtr()> m_settings;
    CallGate& m_filterCalls;
    std::unique_ptr<PictureRun> m_run;
    PictureMakerPtr m_maker;
    uint32_t m_format = 0;    // of m_maker
};

}    // namespace corvane
