// One channel of the library, fed from its own place in the reel; the player has one for each camera. Used on the main
// thread; the callbacks run on the channel's threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "ChannelView.h"
#include "ContactSheet.h"
#include "FrameRecord.h"
#include "MediaSource.h"
#include "Options.h"
#include "RawFiles.h"
#include "Recorder.h"
#include "Reel.h"
#include "Statistics.h"

class ChannelFeed {
public:
    // `view`: where the channel is shown; null: in memory. `sheet`: gets its pictures in memory; `raw`: gets raw
    // pictures and sound; `recorder`: gets its frames; each may be null. All outlive the channel. `delay`: seconds by
    // which its pictures come later, so that the cameras of a wall are not in step.
    ChannelFeed(const Options& options, Reel& reel, ChannelView* view, ContactSheet* sheet, RawFiles* raw,
                Recorder* recorder, bool printsInfo, bool heard, double delay)
        : m_options(options),
          m_reel(reel),
          m_view(view),
          m_sheet(sheet),
          m_raw(raw),
          m_recorder(recorder),
          m_printsInfo(printsInfo),
          m_heard(heard),
          m_delay(delay) {}
    ~ChannelFeed() { Delete(); }
    ChannelFeed(const ChannelFeed&) = delete;
    ChannelFeed& operator=(const ChannelFeed&) = delete;

    // Makes and starts the channel. False with the reason in `error`.
    bool Open(void* instance, const StreamFacts& stream, std::string& error);
    // No more frames follow: those that wait for the buffer to fill come out, at the stream's pace.
    void EndBuffering();
    void Stop();
    void Delete();

    // When the next picture is to be fed, seconds since the start; infinite at the end.
    double NextAt() const;
    // Feeds all that is due.
    void Feed(double elapsed);
    uint64_t Next() const { return m_next; }     // number in the reel
    int64_t FedMs() const { return m_fedMs; }    // of the stream
    void* Channel() const { return m_channel; }
    Figures Now() const;
    ShownPictures::Now Pictures() const { return m_pictures.Get(); }

private:
    static void OnStreamInfo(void* context, uint32_t code, uint64_t a, uint64_t b);
    static void OnPicture(void* context, const PseudoFrame* frame);
    static void OnDisplayed(void* context, const AfterDisplayRecord* record);
    bool Deliver(std::string& error);
    void Input(const Reel::Picture& picture);

    const Options& m_options;
    Reel& m_reel;
    ChannelView* const m_view;
    ContactSheet* const m_sheet;    // on the render thread until the channel is gone
    RawFiles* const m_raw;
    Recorder* const m_recorder;
    const bool m_printsInfo;
    const bool m_heard;    // its sound plays, unless options or a key switch it off
    const double m_delay;
    void* m_instance = nullptr;
    void* m_channel = nullptr;
    StreamFacts m_stream;
    uint64_t m_next = 0;
    int64_t m_fedMs = 0;
    ShownPictures m_pictures;
    uint64_t m_handedOver = 0;       // on the render thread
    ChannelStatistics m_atStop{};    // its counters when it was stopped
};
