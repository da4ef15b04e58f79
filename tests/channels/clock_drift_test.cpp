// A channel that plays for a day what a camera sends whose clock is not ours: the real worker, in simulated time.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "channels/ChannelLive.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
constexpr int64_t kHours = 1;    // a build for finding faults is no place for long runs
#else
constexpr int64_t kHours = 24;
#endif
constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kStepMs = 500;    // by the camera's clock; a key frame every five seconds
constexpr int64_t kPictures = kHours * 3'600'000 / kStepMs;
constexpr int64_t kJitterMs = 15;

// Time passes only while the worker waits, and pictures arrive meanwhile.
class Simulation final : public Clock {
public:
    explicit Simulation(double arrivalMs) : m_arrivalMs(arrivalMs) {}

    int64_t Now() const override { return m_now; }
    int64_t Wall() const override { return 0; }
    bool WaitUntil(Condition& condition, MutexLock& lock, int64_t deadline) override NO_THREAD_SAFETY_ANALYSIS {
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof name);
        if (std::string(name) != "corvane-worker" || Done()) {
            condition.WaitOnce(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(10));
            return true;
        }
        lock.Unlock();
        const bool sent = Arrival(m_sent) <= deadline;
        if (sent)
            Send();
        else
            m_now = std::max<int64_t>(m_now, deadline);
        lock.Lock();
        return sent;
    }
    void NoteDecoded(int64_t number) {
        ++decoded;
        oldest = std::max(oldest, m_now - Arrival(number));
        bunched += m_now - m_lastDecoded < kStepMs * kNsPerMs / 2 ? 1 : 0;
        m_lastDecoded = m_now;
    }

    CChannelLive* channel = nullptr;
    // On the worker: pictures, ns from arrival to decoding, pictures that came right behind the one before.
    int64_t decoded = 0, refused = 0, oldest = 0, bunched = 0;
    int64_t Sent() const { return m_sent; }
    bool Done() const { return m_sent == kPictures; }

private:
    int64_t Arrival(int64_t number) const {
        const uint64_t mixed = (static_cast<uint64_t>(number) + 1) * 6364136223846793005u;
        return static_cast<int64_t>(m_arrivalMs * static_cast<double>(number) * kNsPerMs) +
               static_cast<int64_t>(mixed >> 33) % (kJitterMs * kNsPerMs);
    }
    void Send() {
        m_now = std::max<int64_t>(m_now, Arrival(m_sent));
        const int64_t number = m_sent;
        std::vector<uint8_t> payload(sizeof number);
        std::memcpy(payload.data(), &number, sizeof number);
        const auto header = test::VideoHeader(CORVANE_STREAM_H264, payload, number % 10 == 0, number * kStepMs);
        refused += Ok(channel->Input(header)) ? 0 : 1;
        ++m_sent;
    }

    const double m_arrivalMs;
    int64_t m_lastDecoded = 0;
    std::atomic<int64_t> m_now{0};
    std::atomic<int64_t> m_sent{0};
};
Simulation* running = nullptr;

class NumberDecoder final : public DecoderContext {
public:
    int32_t DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit* in) override {
        int64_t number = 0;
        std::memcpy(&number, in->data, sizeof number);
        running->NoteDecoded(number);
        *out = DecodedFrame{{m_pixels, m_pixels, nullptr}, {16, 16, 0}, 16, 2, nullptr, nullptr, nullptr, {}};
        *got = 1;
        return 0;
    }
    int32_t DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) override { return -1; }
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame*, int32_t) override { return -1; }

private:
    uint8_t m_pixels[48] = {};
};

// Pictures come in order, each up to 15 ms late. A thousandth too fast the queue grows until the worker catches up,
// where it holds enough that no late picture lets it run out; as much too slow it runs out and fills again. No picture
// is lost, or late for more than what a queue holds that has been over its buffer time for 16 pictures. A restart at
// noon costs what waits and what comes before the next key frame, and changes nothing for the others.
TEST(ClockDrift, QueueAndAgeStayBoundedForADay) {
    const struct {
        double rate;
        uint32_t bufferMs;
    } rows[] = {{0.999, 1}, {0.999, 2000}, {1.001, 500}, {1.001, 2000}};
    for (const auto& [rate, bufferMs] : rows) {
        SCOPED_TRACE(testing::Message() << rate << ", buffer " << bufferMs);
        Simulation simulation(kStepMs / rate);
        running = &simulation;
        CChannelLive channel(0, 0, simulation);
        simulation.channel = &channel;
        DecoderFactories factories;
        factories.GetDecoderIsolated_QuickSync = []() -> DecoderContext* { return new NumberDecoder; };
        channel.SetFactories(factories);
        ASSERT_EQ(channel.SetOption(46, 3, 0), Status::Ok);
        std::atomic<uint64_t> kindTold{0};
        channel.Render().SetStreamInfo(
            [](void* told, uint32_t code, uint64_t kind, uint64_t) {
                if (code == 13)
                    *static_cast<std::atomic<uint64_t>*>(told) = kind;
            },
            &kindTold);
        channel.SetBufferTime(bufferMs);
        for (const int64_t end : {kPictures / 2, kPictures}) {
            ASSERT_EQ(channel.Start(false), Status::Ok);
            while (simulation.Sent() < end)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            EXPECT_EQ(channel.Stop(), Status::Ok);
        }
        EXPECT_EQ(kindTold, 3u);
        EXPECT_LE(simulation.refused, 1);    // one may come during the stop
        EXPECT_GE(simulation.decoded, kPictures - 2 * 5 - 10);
        // A buffer of one step holds a picture back until the next is there.
        EXPECT_LT(simulation.bunched, simulation.decoded / (bufferMs == kStepMs ? 1 : 100));
        EXPECT_LE(simulation.oldest / kNsPerMs, int64_t{bufferMs} + kStepMs + kJitterMs + 16 * kStepMs / 1000);
    }
}

}    // namespace
}    // namespace corvane
