#include "audio/SoundVoice.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "base/Limits.h"

namespace corvane {

namespace {

constexpr size_t kRing = 43;           // frames
constexpr uint32_t kSilence = 1024;    // bytes that are played where there is no frame
constexpr int64_t kLateMs = 150;
constexpr uint32_t kPrimingMs = 46;    // half of the silence that is played first, before it is rounded up
constexpr uint32_t kFullMix = 128;
constexpr size_t kSampleBytes = 2;

// Bytes of silence before the first frame: twice the least power of two of samples that lasts 46 ms.
uint32_t Priming(const SoundFormat& format) {
    const uint32_t samples = std::bit_ceil(std::max(1u, format.rate / 1000 * kPrimingMs));
    return 2 * static_cast<uint32_t>(kSampleBytes) * format.channels * samples;
}
static_assert(2 * kSampleBytes * 8 * std::bit_ceil(192u * kPrimingMs) <= limits::kSoundBytes);

int16_t Scaled(int16_t sample, int32_t mix) {
    return static_cast<int16_t>(sample * mix / static_cast<int32_t>(kFullMix));
}

// Writes `count` bytes of the scaled samples, from byte `at` on. A device may ask for half a sample.
void Mix(uint8_t* out, const int16_t* samples, uint32_t at, uint32_t count, int32_t mix) {
    const auto half = [&](uint32_t byte) {
        return static_cast<uint8_t>(static_cast<uint16_t>(Scaled(samples[byte / 2], mix)) >> (8 * (byte % 2)));
    };
    if (at % 2 != 0 && count > 0) {
        *out++ = half(at++);
        --count;
    }
    for (uint32_t i = 0; i < count / 2; ++i) {
        const int16_t sample = Scaled(samples[at / 2 + i], mix);
        std::memcpy(out + kSampleBytes * i, &sample, kSampleBytes);
    }
    if (count % 2 != 0)
        out[count - 1] = half(at + count - 1);
}

}    // namespace

SoundVoice::SoundVoice(std::shared_ptr<SoundShared> shared, const SoundFormat& format)
    : m_shared(std::move(shared)), m_format(format), m_capacity(kRing) {
    m_input.reserve(kRing);
    m_drain.reserve(kRing);
}

// ---- The rings ----

void SoundVoice::Lose(Counter counter, uint64_t count) {
    m_waiting -= count;
    m_shared->counters.Add(counter, count);
}

void SoundVoice::Put(const FramePtr& frame, bool dropWhenFull, Frames& late) {
    MutexLock lock(m_shared->lock);
    if (Now() == State::Opening) {
        const int64_t newest = TimeMs(*frame);
        const auto kept = std::find_if(m_input.begin(), m_input.end(),
                                       [&](const FramePtr& other) { return newest - TimeMs(*other) <= kLateMs; });
        late.assign(std::make_move_iterator(m_input.begin()), std::make_move_iterator(kept));
        m_input.erase(m_input.begin(), kept);
        Lose(Counter::SoundNotPlayed, late.size());
    }
    if (m_input.size() >= m_capacity && (dropWhenFull || m_capacity >= limits::kMaxSoundFrames)) {
        m_shared->counters.Add(Counter::SoundLostRing);
        return;
    }
    m_input.push_back(frame);
    m_capacity = m_input.size() > m_capacity ? 2 * m_capacity : m_capacity;
    ++m_waiting;
}

void SoundVoice::End(Frames& removed) {
    MutexLock lock(m_shared->lock);
    m_ended = true;
    removed.swap(m_input);
    Lose(Counter::SoundNotPlayed, m_waiting);
}

// The rings are exchanged whole. A batch that fills its ring is lost: playing is a whole ring behind.
bool SoundVoice::Pop(FramePtr& frame) noexcept {
    if (m_next == m_drain.size()) {
        m_drain.clear();
        m_next = 0;
        bool full;
        {
            MutexLock lock(m_shared->lock);
            m_drain.swap(m_input);
            full = m_drain.size() == m_capacity;
            if (full && !m_ended)
                Lose(Counter::SoundLostRing, m_drain.size());
        }
        if (full)
            m_drain.clear();
        if (m_drain.empty())
            return false;
    }
    frame = std::move(m_drain[m_next++]);
    return true;
}

// ---- Opening ----

void SoundVoice::Prepare() {
    m_samples = std::make_unique_for_overwrite<int16_t[]>(limits::kSoundBytes / kSampleBytes);
    m_length = Priming(m_format);
    std::memset(m_samples.get(), 0, m_length);
}

void SoundVoice::Opened(bool open, uint64_t closedBefore) noexcept {
    if (!open)
        m_samples.reset();
    m_closedBefore = closedBefore;
    m_state.store(open ? State::Open : State::Failed, std::memory_order_release);
}

// ---- Playing ----

void SoundVoice::Fill(uint8_t* stream, size_t bytes) noexcept {
    int32_t mix;
    {
        MutexLock lock(m_shared->lock);
        mix = static_cast<int32_t>(m_shared->volume * kFullMix / SoundShared::kMaxVolume);
    }
    while (bytes > 0) {
        if (m_ended) {
            std::memset(stream, 0, bytes);
            return;
        }
        if (m_position == m_length) {
            Refill();
            continue;
        }
        const auto count = static_cast<uint32_t>(std::min<size_t>(m_length - m_position, bytes));
        Mix(stream, m_samples.get(), m_position, count, mix);
        stream += count;
        bytes -= count;
        m_position += count;
    }
}

// Samples of the next frame, or silence.
void SoundVoice::Refill() noexcept {
    FramePtr frame;
    m_position = 0;
    m_length = 0;
    const bool came = Pop(frame);
    if (came && m_ended)
        return;
    const bool decoded = came && Decode(*frame);
    if (came)
        Deliver(*frame, decoded);
    if (decoded)
        return;
    m_length = kSilence;
    std::memset(m_samples.get(), 0, m_length);
}

bool SoundVoice::Decode(const MediaFrameImpl& frame) noexcept {
    uint32_t size = limits::kSoundBytes;
    try {
        if (m_decoder.Decode(reinterpret_cast<uint8_t*>(m_samples.get()), &size, frame) < 0)
            return false;
    } catch (...) {    // no memory for the decoder
        return false;
    }
    m_length = size;
    return true;
}

void SoundVoice::Deliver(const MediaFrameImpl& frame, bool decoded) noexcept {
    {
        MutexLock lock(m_shared->lock);
        if (m_ended)
            return;
        Lose(decoded ? Counter::SoundHeard : Counter::SoundLostDecoder, 1);
        if (!decoded)
            return;
        ++m_shared->hooksRunning;
        m_shared->hookThread = std::this_thread::get_id();
    }
    try {
        m_shared->hook(frame, reinterpret_cast<const uint8_t*>(m_samples.get()), m_length, [this] { return !m_ended; });
    } catch (...) {    // of a client's callback
    }
    MutexLock lock(m_shared->lock);
    --m_shared->hooksRunning;
    m_shared->hookEnded.NotifyAll();
}

}    // namespace corvane
