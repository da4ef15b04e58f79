#include "Player.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "Screenshot.h"

namespace {

constexpr double kStatusStep = 0.5;    // seconds between two status lines
constexpr double kLongestWait = 0.2;

int64_t StreamMs(const MediaFrameHeader& header) {
    return int64_t{header.streamSeconds} * 1000 + header.timeMilliseconds;
}

}    // namespace

Player::~Player() {
    Corvane_Release(&m_instance);
}

bool Player::Open(std::string& error) {
    m_source = MediaSource::Open(m_options.input, error);
    if (!m_source)
        return false;
    if (!m_options.contactSheet.empty()) {
        double span = m_source->DurationSeconds() * m_options.loops;
        if (m_options.seconds > 0)
            span = span > 0 ? std::min(span, m_options.seconds) : m_options.seconds;
        m_sheet = std::make_unique<ContactSheet>(static_cast<int64_t>(span * 1000));
    }
    if (!m_options.headless && !OpenWindow(error))
        return false;
    if (const uint32_t status = Corvane_InitialEx(&m_instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION,
                                                  m_options.flags, m_options.background);
        status != Status_Ok) {
        error = "the library does not start";
        return false;
    }
    for (uint32_t i = 0; i < m_options.channels; ++i)
        if (!MakeChannel(error))
            return false;
    return true;
}

bool Player::OpenWindow(std::string& error) {
    m_view = WindowView::Open(m_options, m_source->Width(), m_source->Height(), error);
    return m_view != nullptr;
}

bool Player::MakeChannel(std::string& error) {
    const bool watched = m_channels.empty();
    ChannelSettings settings{};
    settings.mask = watched ? 0x0005 : 0;
    settings.streamInfo = &Player::OnStreamInfo;
    settings.streamInfoContext = this;
    if (watched && m_view)
        m_view->Prepare(settings);
    void* channel = nullptr;
    const uint32_t status = Corvane_CreateChannel(m_instance, &channel, &settings);
    if (status != Status_Ok) {
        error = "a channel cannot be made";
        return false;
    }
    m_channels.push_back(channel);
    Corvane_SetBufferTime(channel, m_options.bufferMs);
    Corvane_SetChannelOption(channel, 48, m_options.threads, 0);
    Corvane_SetDisplayMode(channel, m_options.displayMode);
    if (m_options.rotate != 0)
        Corvane_EnableRotateFilter(channel, m_options.rotate);
    error = "a channel cannot be started";
    const uint32_t waiting = m_options.logo.empty() ? 1 : 0;    // without it the logo stays until the first picture
    if (!Deliver(channel, watched, error) || Corvane_StartChannel(channel, waiting) != Status_Ok)
        return false;
    error.clear();
    return true;
}

bool Player::Deliver(void* channel, bool watched, std::string& error) {
    if (watched && m_view) {
        m_view->SetChannel(channel);
        if (!m_options.logo.empty() &&
            Corvane_SetChannelOption(channel, 25, reinterpret_cast<uint64_t>(m_options.logo.c_str()), 0) != Status_Ok) {
            error = m_options.logo + ": not a picture that can be shown";
            return false;
        }
        return Corvane_RegisterAfterDisplayCallback(channel, &Player::OnDisplayed, this) == Status_Ok;
    }
    Corvane_SetRawDataCallbackSize(channel, m_options.width, m_options.height);
    return Corvane_RegisterRawDataCallback(channel, watched ? &Player::OnPicture : &Player::OnOtherPicture, this,
                                           m_options.kind, m_options.bottomUp ? 1 : 0) == Status_Ok;
}

void Player::OnStreamInfo(void* context, uint32_t code, uint64_t a, uint64_t b) {
    auto* const self = static_cast<Player*>(context);
    if (code == 13)
        self->m_statistics.DecoderKind(static_cast<uint32_t>(a));
    else if (code == 3)
        self->m_pictureSize = a << 32 | b;
}

void Player::OnDisplayed(void* context, const AfterDisplayRecord* record) {
    auto* const self = static_cast<Player*>(context);
    self->m_statistics.Put();
    const uint64_t size = self->m_pictureSize;
    if (record->header != nullptr)
        (void)self->m_statistics.Shown(StreamMs(*record->header), static_cast<uint32_t>(size >> 32),
                                       static_cast<uint32_t>(size));
}

void Player::OnPicture(void* context, const PseudoFrame* frame) {
    auto* const self = static_cast<Player*>(context);
    if (frame->data == nullptr || frame->header == nullptr)
        return;
    const int64_t streamMs = StreamMs(*frame->header);
    if (self->m_statistics.Shown(streamMs, frame->width, frame->height) && self->m_sheet)
        self->m_sheet->Offer(frame->data, frame->width, frame->height, self->m_options.kind, self->m_options.bottomUp,
                             streamMs);
}

void Player::Feed(const EncodedPicture& picture) {
    MediaFrameHeader header{};
    header.recordSize = sizeof(header);
    header.data = picture.data;
    header.payloadSize = picture.size;
    header.streamType = m_source->StreamType();
    header.frameType = picture.key ? 0 : 1;
    header.streamSeconds = static_cast<uint32_t>(picture.timeMs / 1000);
    header.timeMilliseconds = static_cast<uint32_t>(picture.timeMs % 1000);
    header.timeSeconds = static_cast<uint32_t>(m_wallStart + picture.timeMs / 1000);
    m_statistics.Fed(picture.timeMs, picture.size);
    for (size_t i = 0; i < m_channels.size(); ++i)
        if (Corvane_InputEncodedMediaFrame(m_channels[i], &header) != Status_Ok && i == 0)
            m_statistics.Refused();
    m_fedMs = picture.timeMs;
}

bool Player::GoesOn(const std::atomic<bool>& stop) {
    const double now = MonotonicSeconds();
    if (m_state == WindowView::State::Paused)
        m_startedAt += now - m_attendedAt;
    m_attendedAt = now;
    if (m_view) {
        m_state = m_view->Attend();
        TakeScreenshot(false);
    }
    if (!m_options.quiet && now - m_statusAt >= kStatusStep)
        PrintStatus(false);
    return !stop && m_state != WindowView::State::Ended && m_state != WindowView::State::Lost;
}

void Player::TakeScreenshot(bool atEnd) {
    const bool due = atEnd || (m_options.screenshotSeconds >= 0 &&
                               static_cast<double>(m_statistics.Now().shownMs) >= m_options.screenshotSeconds * 1000);
    const bool asked = !m_options.screenshot.empty() && !m_screenshotTaken && due;
    if ((!asked && !m_view->ScreenshotWanted()) || m_state == WindowView::State::Lost)
        return;
    m_view->ScreenshotTaken();
    m_screenshotTaken = m_screenshotTaken || !m_options.screenshot.empty();
    std::string error;
    if (WriteScreenshot(m_channels.front(), m_options.screenshot.empty() ? FreeScreenshotName() : m_options.screenshot,
                        error))
        return;
    if (asked)
        m_screenshotError = error;
    else
        std::fprintf(stderr, "%scorvane-play: %s\n", isatty(STDERR_FILENO) != 0 ? "\r\033[K" : "", error.c_str());
}

void Player::Wait(double seconds) {
    if (m_view)
        m_view->Wait(seconds);
    else
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

bool Player::WaitUntilDue(int64_t timeMs, const std::atomic<bool>& stop) {
    while (GoesOn(stop)) {
        const double left = m_startedAt + static_cast<double>(timeMs) / 1000 - MonotonicSeconds();
        if (left <= 0 && m_state == WindowView::State::Playing)
            return true;
        Wait(m_state == WindowView::State::Playing ? std::min(left, kLongestWait) : kLongestWait);
    }
    return false;
}

void Player::Play(const std::atomic<bool>& stop) {
    for (uint32_t turn = 0; turn < m_options.loops; ++turn) {
        if (turn > 0 && !m_source->Rewind())
            return;
        EncodedPicture picture;
        while (m_source->Next(picture)) {
            if (m_options.seconds > 0 && static_cast<double>(picture.timeMs) >= m_options.seconds * 1000)
                return;
            if (!WaitUntilDue(picture.timeMs, stop))
                return;
            Feed(picture);
        }
    }
}

bool Player::Run(const std::atomic<bool>& stop, std::string& error) {
    if (!Open(error))
        return false;
    m_wallStart = m_source->WallStartSeconds() != 0 ? m_source->WallStartSeconds() : time(nullptr);
    m_startedAt = m_statusAt = m_attendedAt = MonotonicSeconds();
    m_statusProcessor = ProcessorSeconds();
    Play(stop);
    Drain(stop);
    if (m_view)
        TakeScreenshot(true);
    for (void* const channel : m_channels)
        Corvane_StopChannel(channel);
    if (m_view)
        m_statistics.WindowSize(m_view->TheWindow().Width(), m_view->TheWindow().Height());
    if (!m_options.quiet)
        PrintStatus(true);
    if (m_state == WindowView::State::Lost)
        error = "the X server went away";
    return error.empty();
}

// Gives what still waits the time to come out: until nothing more is shown for half a second.
void Player::Drain(const std::atomic<bool>& stop) {
    uint64_t before = m_statistics.Now().shown;
    for (double quietSince = MonotonicSeconds(); GoesOn(stop) && MonotonicSeconds() - quietSince < 0.5;) {
        const Statistics::Snapshot now = m_statistics.Now();
        if (now.waiting == 0)
            return;
        if (now.shown != before)
            quietSince = MonotonicSeconds();
        before = now.shown;
        Wait(0.02);
    }
}

void Player::PrintStatus(bool last) {
    const bool terminal = isatty(STDERR_FILENO) != 0;
    if (!terminal && !last)
        return;
    const double now = MonotonicSeconds();
    const double processor = ProcessorSeconds();
    const Statistics::Snapshot sum = m_statistics.Now();
    const double step = std::max(0.001, last ? now - m_startedAt : now - m_statusAt);
    const uint64_t shown = last ? sum.shown : sum.shown - m_statusShown;
    const double used = last ? processor : processor - m_statusProcessor;
    std::fprintf(
        stderr,
        "%s%lld:%02lld  %3lld/s  queue %llu (%llu kB)  shown %llu  lost %llu  refused %llu  age %lld ms  cpu %lld%%%s",
        terminal ? "\r\033[K" : "", static_cast<long long>(m_fedMs / 60000),
        static_cast<long long>(m_fedMs / 1000 % 60), static_cast<long long>(static_cast<double>(shown) / step + 0.5),
        static_cast<unsigned long long>(sum.waiting), static_cast<unsigned long long>(sum.waitingBytes / 1024),
        static_cast<unsigned long long>(sum.shown), static_cast<unsigned long long>(sum.lost),
        static_cast<unsigned long long>(sum.refused), static_cast<long long>(sum.ageMs + 0.5),
        static_cast<long long>(100 * used / step + 0.5), last ? "\n" : "");
    m_statusAt = now;
    m_statusProcessor = processor;
    m_statusShown = sum.shown;
}

bool Player::Finish(std::string& error) {
    for (void*& channel : m_channels)
        Corvane_DeleteChannel(m_instance, &channel);
    if (m_sheet && !m_sheet->Write(m_options.contactSheet)) {
        error = m_options.contactSheet + ": cannot be written";
        return false;
    }
    error = m_screenshotError;
    return WriteStatistics(error) && error.empty();
}

bool Player::WriteStatistics(std::string& error) const {
    if (m_options.statsFile.empty())
        return true;
    FILE* const file = std::fopen(m_options.statsFile.c_str(), "wb");
    const std::string text = m_statistics.Json(m_options.input, m_source->CodecName(), m_options.channels);
    const bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (file == nullptr || std::fclose(file) != 0 || !written) {
        error = m_options.statsFile + ": cannot be written";
        return false;
    }
    return true;
}
