// A live channel in simulated time: the real worker, which decodes frames that carry nothing but their number, on a
// clock that moves only while the worker waits or decodes. Frames that arrive meanwhile are fed at their times.
#pragma once

#include <pthread.h>

#include "channels/ChannelLive.h"
#include "support/ScriptedDecoder.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {

struct Arrival {
    int64_t atNs = 0, stampMs = 0;
    bool key = true, hidden = false;    // hidden: not for display
    uint32_t type = CORVANE_STREAM_H264;
    int64_t decodingNs = 0;
    std::vector<uint8_t> payload{};    // after the number
};

class SimulatedChannel final : public Clock {
public:
    explicit SimulatedChannel(std::vector<Arrival> arrivals, RendererMakers makers = BuiltRenderers())
        : m_arrivals(std::move(arrivals)), channel(0, 0, *this, makers) {
        ScriptedDecoder::picture = [this](const EncodedUnit& unit) { return Decode(unit); };
        channel.SetFactories({.GetDecoderIsolated_QuickSync = &ScriptedDecoder::Make});
        (void)channel.SetOption(46, kKind, 0);
    }
    // Plays the frames that arrive up to `end`, until all are decoded or the rest waits for more. Then it stops.
    void Play(size_t end) {
        m_end = end;
        m_idle = 0;
        EXPECT_EQ(channel.Start(false), Status::Ok);
        EXPECT_TRUE(Eventually([&] { return m_idle > 3 && (Told().queueFrames == 0 || m_idle > 60); }));
        EXPECT_EQ(channel.Stop(), Status::Ok);
    }
    ChannelStatistics Told() {
        ChannelStatistics told{};
        told.recordSize = sizeof told;
        channel.GetStatistics(told);
        return told;
    }

    int64_t Now() const override { return m_now; }
    int64_t Wall() const override { return 0; }
    bool WaitUntil(Condition& condition, MutexLock& lock, int64_t deadline) override NO_THREAD_SAFETY_ANALYSIS {
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof name);
        if (std::string(name) != "corvane-worker") {
            condition.WaitOnce(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(5));
            return false;    // the render thread sees many of its ticks
        }
        lock.Unlock();
        onWait();
        const bool sent = SendUntil(deadline, 1);
        if (!sent && (m_sent < m_end || !channel.IsBuffering()))    // the clock stops where no more frames come
            m_now = std::max<int64_t>(m_now, deadline);
        if (m_sent == m_end) {
            ++m_idle;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));    // a stop gets its turn
        }
        lock.Lock();
        return sent;
    }

    static constexpr uint32_t kKind = 3;
    // On the worker: the number of each decoded frame and when its decoding began.
    std::function<void(int64_t number, int64_t ns)> onDecoded = [](int64_t, int64_t) {};
    std::function<void()> onWait = [] {};
    std::atomic<int64_t> refused{0};

private:
    static constexpr int kDigits = 5;    // of seven bits, with the eighth set: none looks like a start code

    DecodedFrame Decode(const EncodedUnit& unit) {
        size_t number = 0;
        for (int i = 0; i < kDigits; ++i)
            number |= static_cast<size_t>(unit.data[i] & 0x7F) << (7 * i);
        m_idle = 0;
        onDecoded(static_cast<int64_t>(number), m_now);
        const int64_t ready = m_now + m_arrivals[number].decodingNs;
        (void)SendUntil(ready, m_arrivals.size());
        m_now = std::max<int64_t>(m_now, ready);
        return {{m_pixels, m_pixels, nullptr}, {16, 16, 0}, 16, 2, nullptr, nullptr, nullptr, {}};
    }

    // Feeds the frames that arrive by `deadline`, at most `most`. False when there was none.
    bool SendUntil(int64_t deadline, size_t most) {
        size_t count = 0;
        for (; count < most && m_sent < m_end && m_arrivals[m_sent].atNs <= deadline; ++count) {
            const Arrival& arrival = m_arrivals[m_sent];
            m_now = std::max<int64_t>(m_now, arrival.atNs);
            Bytes number(kDigits);
            for (int i = 0; i < kDigits; ++i)
                number[i] = static_cast<uint8_t>(m_sent >> (7 * i) | 0x80);
            const Bytes payload = number + arrival.payload;
            ++m_sent;
            refused += !Ok(channel.Input(
                Hidden(VideoHeader(arrival.type, payload, arrival.key, arrival.stampMs), arrival.hidden)));
        }
        return count > 0;
    }

    const std::vector<Arrival> m_arrivals;
    uint8_t m_pixels[48] = {};
    std::atomic<int64_t> m_now{m_arrivals[0].atNs};
    std::atomic<size_t> m_sent{0}, m_end{0};
    std::atomic<int> m_idle{0};    // waits since all had arrived and the last was decoded

public:
    CChannelLive channel;    // last: its threads use all of the above
};

}    // namespace corvane::test
