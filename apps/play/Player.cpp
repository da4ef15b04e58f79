#include "Player.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>

#include "Report.h"
#include "Stills.h"

namespace {

constexpr double kLongestWait = 0.2;     // seconds
constexpr double kPictureStep = 0.04;    // over which the cameras of a wall are spread

}    // namespace

Player::~Player() {
    m_feeds.clear();
    m_decoder.reset();
    m_recorder.reset();
    Corvane_Release(&m_instance);
}

bool Player::Open(std::string& error) {
    m_source = MediaSource::Open(m_options.input, error);
    if (!m_source)
        return false;
    if (const std::string codec = m_source->SilentCodecName(); !codec.empty()) {
        m_status.Complain("the sound is " + codec + ", which is not decoded here: the file plays without sound");
        m_status.SetSilentCodec(codec);
    }
    m_pixelAspect = m_options.rotate == 0 ? m_source->PixelAspect() : 1;    // of a picture that is turned there is none
    m_reel = std::make_unique<Reel>(*m_source, m_options.loops, m_options.seconds);
    if (!m_options.contactSheet.empty()) {
        double span = m_source->DurationSeconds() * m_options.loops;
        if (m_options.seconds > 0)
            span = span > 0 ? std::min(span, m_options.seconds) : m_options.seconds;
        m_sheet = std::make_unique<ContactSheet>(static_cast<int64_t>(span * 1000));
    }
    m_raw = RawFiles::Open(m_options, error);
    if (!error.empty())
        return false;
    if (!m_options.headless) {
        m_wall = Wall::Open(m_options, m_source->Width(), m_source->Height(), m_pixelAspect, error);
        if (!m_wall)
            return false;
    }
    const uint32_t flags = m_options.flags | (m_options.decodeOnly ? uint32_t{CORVANE_FLAG_DECODE_ONLY} : 0);
    if (Corvane_InitialEx(&m_instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, flags, m_options.background) !=
        Status_Ok) {
        error = "the library does not start";
        return false;
    }
    if (!m_options.plugins.empty())
        Corvane_LoadDecoders(m_instance, m_options.plugins.c_str());
    m_recorder = Recorder::Open(m_instance, m_options, error);
    return error.empty() && OpenFeeds(error);
}

bool Player::OpenFeeds(std::string& error) {
    if (m_options.decodeOnly) {
        m_decoder = std::make_unique<DecoderFeed>(m_options, m_sheet.get(), m_raw.get());
        if (!m_decoder->Open(m_instance))
            error = "a channel cannot be made";
        return error.empty();
    }
    const StreamFacts stream = FactsOf(*m_source);
    const uint32_t count = std::max(m_options.channels, m_options.wall);
    for (uint32_t i = 0; i < count; ++i) {
        ChannelView* const view = m_wall && i < m_wall->Count() ? &m_wall->View(i) : nullptr;
        const double delay = m_options.wall > 1 ? kPictureStep * i / count : 0;
        m_feeds.push_back(std::make_unique<ChannelFeed>(
            m_options, *m_reel, view, i == 0 ? m_sheet.get() : nullptr, i == 0 ? m_raw.get() : nullptr,
            i == 0 ? m_recorder.get() : nullptr, i == 0 && m_options.info, i == 0, delay));
        if (!m_feeds.back()->Open(m_instance, stream, error))
            return false;
    }
    return true;
}

// ---- Playing -------------------------------------------------------------------------------------------------------

bool Player::Run(const std::atomic<bool>& stop, std::string& error) {
    if (!Open(error))
        return false;
    m_startedAt = m_attendedAt = MonotonicSeconds();
    m_status.Start(m_startedAt);
    if (m_decoder) {
        DecodeAll(stop);
    } else {
        Play(stop);
        Drain(stop);
    }
    if (m_wall)
        TakeScreenshot(true);
    for (const auto& feed : m_feeds)
        feed->Stop();
    PrintStatus(true);
    const bool toTheEnd = !stop && m_state != Wall::State::Ended;
    const ChannelStatistics sum = SumOf(AllFigures());
    if (m_state == Wall::State::Lost)
        error = "the X server went away";
    else if (toTheEnd && ShownOf(sum) == 0)
        error = std::string("nothing was shown: ") +
                (sum.lastCause != CORVANE_CAUSE_NONE ? TextOfCause(sum.lastCause) : "the stream holds no picture");
    return error.empty();
}

void Player::Play(const std::atomic<bool>& stop) {
    while (GoesOn(stop)) {
        double next = INFINITY;
        uint64_t behind = UINT64_MAX;
        const bool playing = m_state == Wall::State::Playing;
        const double elapsed = MonotonicSeconds() - m_startedAt;
        for (const auto& feed : m_feeds) {
            if (playing)
                feed->Feed(elapsed);
            next = std::min(next, feed->NextAt());
            behind = std::min(behind, feed->Next());
        }
        m_reel->Forget(behind);
        if (std::isinf(next))
            return;
        Wait(playing ? std::min(next - elapsed, kLongestWait) : kLongestWait);
    }
}

void Player::DecodeAll(const std::atomic<bool>& stop) {
    const StreamFacts stream = FactsOf(*m_source);
    const Reel::Picture* frame = nullptr;
    for (uint64_t next = 0; !stop && (frame = m_reel->At(next)) != nullptr; m_reel->Forget(++next)) {
        const MediaFrameHeader record = RecordOf(*frame, stream);
        m_decoder->Decode(record);
        if (m_recorder)
            m_recorder->Input(record);
        PrintStatus(false);
    }
}

bool Player::GoesOn(const std::atomic<bool>& stop) {
    const double now = MonotonicSeconds();
    if (m_state == Wall::State::Paused)
        m_startedAt += now - m_attendedAt;
    m_attendedAt = now;
    if (m_wall) {
        for (size_t i = 0; i < m_wall->Count(); ++i) {
            const ShownPictures::Now pictures = m_feeds[i]->Pictures();
            m_wall->View(i).SetShape(pictures.width * m_pixelAspect, pictures.height);
        }
        m_state = m_wall->Attend();
        if (const std::string notice = m_wall->TakeNotice(); !notice.empty())
            m_status.Notice(notice);
        TakeScreenshot(false);
    }
    SaveStills();
    PrintStatus(false);
    return !stop && m_state != Wall::State::Ended && m_state != Wall::State::Lost;
}

void Player::Wait(double seconds) {
    if (seconds <= 0)
        return;
    if (m_wall)
        m_wall->Wait(seconds);
    else
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// Frames that wait at the end of the stream come out at the stream's pace. The last picture of a channel may never be
// shown, in a hidden window or by a stopped server, so the player waits a second for it.
void Player::Drain(const std::atomic<bool>& stop) {
    constexpr double kLastPicture = 1;    // seconds
    for (const auto& feed : m_feeds)
        feed->EndBuffering();
    double onlyLastSince = MonotonicSeconds();
    while (GoesOn(stop)) {
        bool done = true;
        bool onlyLast = true;
        for (const auto& feed : m_feeds) {
            const ChannelStatistics counters = feed->Now().counters;
            const uint64_t left = LeftOf(counters);
            done = done && left == 0 && SoundLeftOf(counters) == 0;
            onlyLast = onlyLast && left <= 1 && counters.queueFrames == 0;
        }
        const double now = MonotonicSeconds();
        if (!onlyLast)
            onlyLastSince = now;
        if (done || now - onlyLastSince >= kLastPicture)
            return;
        Wait(0.02);
    }
}

std::vector<Figures> Player::AllFigures() const {
    std::vector<Figures> all;
    for (const auto& feed : m_feeds)
        all.push_back(feed->Now());
    if (m_decoder)
        all.push_back(m_decoder->Now());
    return all;
}

void Player::PrintStatus(bool last) {
    const double now = MonotonicSeconds();
    if (last || m_status.Due(now))
        m_status.Update(now, m_startedAt, m_decoder ? m_decoder->FedMs() : m_feeds.front()->FedMs(), AllFigures(),
                        last);
}

// ---- Pictures that are saved ---------------------------------------------------------------------------------------

void Player::TakeScreenshot(bool atEnd) {
    const double shown = static_cast<double>(m_feeds.front()->Pictures().streamMs);
    const bool due = atEnd || (m_options.screenshotSeconds >= 0 && shown >= m_options.screenshotSeconds * 1000);
    const bool asked = !m_options.screenshot.empty() && !m_screenshotTaken && due;
    const bool wished = m_wall->TakeScreenshotWish();
    if ((!asked && !wished) || m_state == Wall::State::Lost)
        return;
    m_screenshotTaken = m_screenshotTaken || !m_options.screenshot.empty();
    const std::string name = m_options.screenshot.empty() ? FreeName("png") : m_options.screenshot;
    std::string error;
    if (WriteScreenshot(*m_wall, name, error))
        m_status.Notice("saved " + name);
    else if (asked)
        m_mistake = error;
    else
        m_status.Complain(error);
}

// Saves the picture of the channel under a key press, and that of the first channel from time to time until one fails.
void Player::SaveStills() {
    std::string error;
    if (ChannelView* const wanted = m_wall ? m_wall->TakeStillWish() : nullptr)
        if (!SaveStill(wanted->Channel(), error))
            m_status.Complain(error);
    const double every = m_options.snapshotEvery;
    const double shown = static_cast<double>(m_feeds.front()->Pictures().streamMs) / 1000;
    if (every <= 0 || shown < m_nextStill || !m_mistake.empty())
        return;
    m_nextStill = (std::floor(shown / every) + 1) * every;
    if (!SaveStill(m_feeds.front()->Channel(), error))
        m_mistake = error;
}

bool Player::SaveStill(void* channel, std::string& error) {
    const std::string name = FreeName(ExtensionOf(m_options.stillFormat));
    if (!WriteStill(channel, m_options.stillFormat, name, error))
        return false;
    m_status.Notice("saved " + name);
    return true;
}

bool Player::Finish(std::string& error) {
    for (const auto& feed : m_feeds)
        feed->Delete();
    if (m_decoder)
        m_decoder->Delete();
    if (m_recorder && !m_recorder->Close(error))
        return false;
    if (m_sheet && !m_sheet->Write(m_options.contactSheet)) {
        error = m_options.contactSheet + ": cannot be written";
        return false;
    }
    if (m_raw && !m_raw->Close(error))
        return false;
    error = m_mistake;
    return WriteStatistics(error) && error.empty();
}

bool Player::WriteStatistics(std::string& error) const {
    if (m_options.statsFile.empty())
        return true;
    ReportFacts facts{m_options.input, m_source->CodecName(), m_source->SilentCodecName()};
    if (m_wall) {
        facts.windowWidth = m_wall->TheWindow().Width();
        facts.windowHeight = m_wall->TheWindow().Height();
    }
    FILE* const file = std::fopen(m_options.statsFile.c_str(), "wb");
    const std::string text = MakeReport(facts, AllFigures());
    const bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (file == nullptr || std::fclose(file) != 0 || !written) {
        error = m_options.statsFile + ": cannot be written";
        return false;
    }
    return true;
}
