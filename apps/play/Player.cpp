#include "Player.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <thread>

namespace {

constexpr double kStatusStep = 0.5;    // seconds between two status lines

int64_t StreamMs(const MediaFrameHeader& header) {
    return int64_t{header.streamSeconds} * 1000 + header.timeMilliseconds;
}

void Sleep(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
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
    if (const uint32_t status = Corvane_Initial(&m_instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
        status != Status_Ok) {
        error = "the library does not start";
        return false;
    }
    for (uint32_t i = 0; i < m_options.channels; ++i)
        if (!MakeChannel(error))
            return false;
    return true;
}

bool Player::MakeChannel(std::string& error) {
    const bool watched = m_channels.empty();
    ChannelSettings settings{};
    settings.mask = watched ? 0x0005 : 0;
    settings.streamInfo = &Player::OnStreamInfo;
    settings.streamInfoContext = this;
    void* channel = nullptr;
    uint32_t status = Corvane_CreateChannel(m_instance, &channel, &settings);
    if (status != Status_Ok) {
        error = "a channel cannot be made";
        return false;
    }
    m_channels.push_back(channel);
    Corvane_SetBufferTime(channel, m_options.bufferMs);
    Corvane_SetChannelOption(channel, 48, m_options.threads, 0);
    Corvane_SetDisplayMode(channel, m_options.displayMode);
    Corvane_SetRawDataCallbackSize(channel, m_options.maxWidth, m_options.maxHeight);
    if (m_options.rotate != 0)
        Corvane_EnableRotateFilter(channel, m_options.rotate);
    status = Corvane_RegisterRawDataCallback(channel, watched ? &Player::OnPicture : &Player::OnOtherPicture, this,
                                             m_options.kind, m_options.bottomUp ? 1 : 0);
    if (status == Status_Ok)
        status = Corvane_StartChannel(channel, 1);
    if (status != Status_Ok)
        error = "a channel cannot be started";
    return status == Status_Ok;
}

void Player::OnStreamInfo(void* context, uint32_t code, uint64_t a, uint64_t) {
    if (code == 13)
        static_cast<Player*>(context)->m_statistics.DecoderKind(static_cast<uint32_t>(a));
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

bool Player::WaitUntilDue(int64_t timeMs, const std::atomic<bool>& stop) {
    for (;;) {
        if (stop)
            return false;
        const double now = MonotonicSeconds();
        if (!m_options.quiet && now - m_statusAt >= kStatusStep)
            PrintStatus(false);
        const double left = m_startedAt + static_cast<double>(timeMs) / 1000 - now;
        if (left <= 0)
            return true;
        Sleep(std::min(left, 0.2));
    }
}

bool Player::Run(const std::atomic<bool>& stop, std::string& error) {
    if (!Open(error))
        return false;
    m_wallStart = m_source->WallStartSeconds() != 0 ? m_source->WallStartSeconds() : time(nullptr);
    m_startedAt = m_statusAt = MonotonicSeconds();
    m_statusProcessor = ProcessorSeconds();
    for (uint32_t turn = 0; turn < m_options.loops && !stop; ++turn) {
        if (turn > 0 && !m_source->Rewind())
            break;
        EncodedPicture picture;
        while (m_source->Next(picture)) {
            if (m_options.seconds > 0 && static_cast<double>(picture.timeMs) >= m_options.seconds * 1000)
                break;
            if (!WaitUntilDue(picture.timeMs, stop))
                break;
            Feed(picture);
        }
    }
    Drain(stop);
    for (void* const channel : m_channels)
        Corvane_StopChannel(channel);
    if (!m_options.quiet)
        PrintStatus(true);
    return true;
}

// Gives what still waits the time to come out: until nothing more is shown for half a second.
void Player::Drain(const std::atomic<bool>& stop) {
    uint64_t before = m_statistics.Now().shown;
    for (double quietSince = MonotonicSeconds(); !stop && MonotonicSeconds() - quietSince < 0.5;) {
        const Statistics::Snapshot now = m_statistics.Now();
        if (now.waiting == 0)
            return;
        if (now.shown != before)
            quietSince = MonotonicSeconds();
        before = now.shown;
        Sleep(0.02);
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
