// The bytes are calls on two decoder channels of one instance: frames of every class, whole and damaged, by each of the
// ways that give a result, with settings, filters and deletions between them; from the main thread, from a second one,
// and from inside the callbacks and filters of both channels. A call that a running one excludes is refused; nothing is
// written behind a buffer, or into one whose call failed for its size; and at the end every frame is counted.
//
// The first byte: 1 a second thread, which keeps to channel 0; 2 and 4 flags of the instance. Then two bytes a call.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <mutex>
#include <numeric>
#include <span>
#include <thread>
#include <vector>

#include "SmallStreams.h"
#include "corvane/corvane.h"
#include "corvane/filter.h"

namespace {

constexpr int kMaxCalls = 200;
constexpr int kMaxDepth = 3;            // calls inside each other
constexpr uint32_t kUnset = 0xDEAD;     // no call writes it
constexpr uint8_t kCanary = 0xAB;       // in and behind the buffers
constexpr size_t kCanaryBytes = 256;    // behind them

void Require(bool holds) {
    if (!holds)
        std::abort();
}

uint8_t SumOf(const uint8_t* data, size_t size) {
    return std::accumulate(data, data + size, uint8_t{0},
                           [](uint8_t sum, uint8_t byte) { return static_cast<uint8_t>(sum + byte); });
}

// Hands out bytes to both threads.
class Source {
public:
    Source(const uint8_t* data, size_t size) : m_bytes(data, size) {}
    bool Next(uint8_t& first, uint8_t& second) {
        const std::lock_guard lock(m_mutex);
        if (m_at + 2 > m_bytes.size() || ++m_calls > kMaxCalls)
            return false;
        first = m_bytes[m_at++];
        second = m_bytes[m_at++];
        return true;
    }
    // Up to 64 bytes from the position on, not consumed.
    std::vector<uint8_t> Noise() {
        const std::lock_guard lock(m_mutex);
        const auto rest = m_bytes.subspan(m_at);
        return {rest.begin(), rest.begin() + static_cast<ptrdiff_t>(std::min<size_t>(64, rest.size()))};
    }

private:
    std::mutex m_mutex;
    const std::span<const uint8_t> m_bytes;
    size_t m_at = 0;
    int m_calls = 0;
};

struct Frame {
    MediaFrameHeader header{};
    std::vector<uint8_t> bytes, extension;
};

struct World;

struct Filter final : QMRX::Filter::IFilter {
    World* world = nullptr;
    int32_t Process(QMRX::Filter::FilterArgs* args) override;
};

struct World {
    World(const uint8_t* data, size_t size) : source(data, size) {
        for (Filter& filter : filters)
            filter.world = this;
    }

    Source source;
    void* instance = nullptr;
    bool twoThreads = false;
    // Channel 0 lives to the end. Channel 1 comes and goes; the second thread never touches it.
    std::array<void*, 2> channels{};
    std::array<Filter, 2> filters;
    std::atomic<uint32_t> time{0};
    std::atomic<int> sizesSet{0};

    void Run(bool main) {
        uint8_t what, how;
        while (source.Next(what, how))
            Step(main, what, how);
    }
    void Inside();
    void Create(size_t index, uint8_t how);
    void Finish();

private:
    using Call = std::function<uint32_t(DecodedVideoInfo&, uint32_t& size)>;

    void Step(bool main, uint8_t what, uint8_t how);
    Frame Make(uint8_t how);
    uint32_t Alone(size_t index, const std::function<uint32_t()>& call) const;
    uint32_t Pull(size_t index, uint32_t capacity, bool noBuffer, const Call& call, uint32_t* written = nullptr) const;
    void Sound(size_t index, uint8_t how);
    void Told(size_t index, uint8_t how);
    void Option(void* channel, uint8_t how);
    void Delete(size_t index, uint8_t how);
};

// Of each thread: how many of its calls run on each channel, whether it is the main one, and what its innermost
// callback shall do.
thread_local std::array<int, 2> inside{};
thread_local bool mainThread = false;
thread_local bool fails = false;

uint32_t Capacity(uint8_t how) {
    constexpr uint32_t kSizes[] = {0, 1, 1535, 1536, 1537, 4096, 18'432, 65'536};
    return (how & 8) != 0 ? how * 97u : kSizes[how & 7];
}

uint32_t Prefix(uint8_t how) {
    constexpr uint32_t kPrefixes[] = {0, 1, 13, 64, 4096, 100'000, 7, 0xFFFFFFFF};
    return kPrefixes[how & 7];
}

// Makes the next call from a callback or a filter.
void World::Inside() {
    fails = false;
    if (inside[0] + inside[1] > kMaxDepth)
        return;
    uint8_t what, how;
    if (source.Next(what, how))
        Step(mainThread, what, how);
}

int32_t Filter::Process(QMRX::Filter::FilterArgs* args) {
    for (int plane = 0; plane < 3; ++plane)
        for (uint32_t y = 0; y < (plane == 0 ? args->height : (args->height + 1) / 2); ++y)
            std::copy_n(args->source->plane[plane] + int64_t{y} * args->source->stride[plane],
                        plane == 0 ? args->width : (args->width + 1) / 2,
                        args->destination->plane[plane] + int64_t{y} * args->destination->stride[plane]);
    world->Inside();
    if (fails && this == world->filters.data())
        throw 7;
    return fails ? -1 : 0;
}

// The result stays as it is whatever is called meanwhile.
void OnRaw(void* context, uint32_t code, void* record) {
    World& world = *static_cast<World*>(context);
    if (code == CORVANE_RAW_SOUND) {
        const auto& info = *static_cast<RawAudioInfo*>(record);
        const uint8_t sum = SumOf(info.samples, info.size);
        world.Inside();
        Require(sum == SumOf(info.samples, info.size));
    } else {
        Require(code == CORVANE_RAW_PICTURE);
        auto& info = *static_cast<RawPictureInfo*>(record);
        Require(info.pixels == info.buffer + info.prefix && info.size > info.prefix);
        const uint8_t sum = SumOf(info.buffer, info.size);
        world.Inside();
        Require(sum == SumOf(info.buffer, info.size));
        info.repeat = info.count <= (info.header[28] & 3u);    // by the time of the frame
        info.requestedFormat = info.format + 5;
    }
    if (fails)
        throw 7;
}

void World::Create(size_t index, uint8_t how) {
    const DecoderChannelSettings settings{(how & 1) != 0 ? &OnRaw : nullptr, this, how % 20u, how};
    Corvane_CreateDecoderChannel(instance, &channels[index], &settings);
}

// Damage does not reach the headers with the size of the picture: that would only cost memory. A JPEG gets other sizes.
Frame World::Make(uint8_t how) {
    struct Stream {
        std::span<const uint8_t> bytes;
        uint32_t type;
        size_t header = 0;    // bytes
        bool key = true;
        uint32_t rate = 8000;
    };
    static constexpr std::array<uint8_t, 60> kSilence{};
    static constexpr Stream kStreams[] = {
        {kJpeg, CORVANE_STREAM_JPEG, 0x140},
        {kH264Key, CORVANE_STREAM_H264, 44},
        {kH264Next, CORVANE_STREAM_H264, 0, false},
        {kMpeg4Key, CORVANE_STREAM_MPEG4, 38},
        {kMpeg4Next, CORVANE_STREAM_MPEG4, 0, false},
        {kH265Key, CORVANE_STREAM_H265, 84},
        {kH265Next, CORVANE_STREAM_H265, 0, false},
        {kH263, CORVANE_STREAM_H263, 8},
        {kAac, CORVANE_STREAM_AAC, 0, true, 16000},
        {kSilence, CORVANE_STREAM_MULAW},
        {std::span(kSilence).first(60), CORVANE_STREAM_G7221, 0, true, 16000},
        {std::span(kSilence).first(10), CORVANE_STREAM_G729A},
        {std::span(kSilence).first(32), CORVANE_STREAM_AMR},
        {kSilence, CORVANE_STREAM_ALAW},
        {kSilence, CORVANE_STREAM_G726},
        {kJpeg, CORVANE_STREAM_PLACEHOLDER},
    };
    const Stream& stream = kStreams[how % std::size(kStreams)];
    Frame frame;
    frame.bytes.assign(stream.bytes.begin(), stream.bytes.end());
    MediaFrameHeader& header = frame.header;
    header.recordSize = sizeof header;
    header.streamType = stream.type;
    header.frameType = stream.key ? 0 : 1;
    header.timeMilliseconds = time.fetch_add(40) % 1000;
    header.timeSeconds = header.streamSeconds = time / 1000;
    header.audioSampleRate = stream.rate;
    header.audioChannels = 1;
    header.audioBlockCount = 1;
    header.detail.audio.audioBitRate = stream.type == CORVANE_STREAM_G726 ? 16000 : 0;
    uint8_t kind = 0, where = 0;
    if ((how & 0x80) != 0)
        (void)source.Next(kind, where);
    const size_t from = std::min(stream.header, frame.bytes.size() - 1);
    switch (kind & 15) {
    case 1:
    case 2:
    case 3:    // a bit, or a stretch
        for (size_t i = 0; i < 1u + (kind & 1u) * (kind >> 4); ++i)
            frame.bytes[from + (where + i) % (frame.bytes.size() - from)] ^= static_cast<uint8_t>(1 + kind);
        break;
    case 4:
        frame.bytes.resize(where % frame.bytes.size());
        break;
    case 5:
        header.streamType = kStreams[where % std::size(kStreams)].type;
        break;
    case 6:
        frame.bytes = source.Noise();
        break;
    case 7:
        frame.extension = source.Noise();
        break;
    case 8:    // another size, odd ones too; the samples end too early
        if (stream.type == CORVANE_STREAM_JPEG) {
            constexpr uint8_t kMarker[] = {0xFF, 0xC0};
            const auto at = std::search(frame.bytes.begin(), frame.bytes.end(), kMarker, kMarker + 2);
            at[6] = static_cast<uint8_t>(1 + (where & 15) * 7);
            at[8] = static_cast<uint8_t>(1 + (where >> 4) * 13);
        }
        break;
    case 9:
        header.audioSampleRate = where * 1000u;
        header.audioChannels = where & 15;
        header.audioBlockCount = where >> 4;
        header.detail.audio.audioBitRate = where * 400u;
        header.detail.audio.audioPacking = where & 1;
        break;
    case 10:
        header.frameType ^= 1;
        header.streamType = (where & 1) != 0 ? 1u << (where >> 1 & 31) : header.streamType;
        break;
    case 11:    // pictures one after the other in one frame
        for (const auto& more : {std::span<const uint8_t>(kH264Next), std::span<const uint8_t>(kH264Key)})
            frame.bytes.insert(frame.bytes.end(), more.begin(), more.end());
        break;
    default:
        break;
    }
    header.data = frame.bytes.data();
    header.payloadSize = static_cast<uint32_t>(frame.bytes.size());
    header.extension = frame.extension.data();
    header.extensionSize = static_cast<uint32_t>(frame.extension.size());
    if ((kind & 15) == 12)
        header.data = nullptr;
    if ((kind & 15) == 13)
        header.payloadSize = where == 0 ? 0 : 0x20000000;    // beyond what a frame may have: nothing is read
    return frame;
}

uint32_t World::Alone(size_t index, const std::function<uint32_t()>& call) const {
    const bool within = inside[index] > 0;
    ++inside[index];
    const bool failed = fails;
    const uint32_t status = call();
    fails = failed;
    --inside[index];
    Require(!within || status == Status_Failed);
    return status;
}

// Checks what a call did to the memory and the record that it got.
uint32_t World::Pull(size_t index, uint32_t capacity, bool noBuffer, const Call& call, uint32_t* written) const {
    std::vector<uint8_t> memory(capacity + kCanaryBytes, kCanary);
    const auto untouched = [&](size_t from) {
        return std::all_of(memory.begin() + static_cast<ptrdiff_t>(from), memory.end(),
                           [](uint8_t byte) { return byte == kCanary; });
    };
    DecodedVideoInfo info{};
    info.width = kUnset;
    info.capacity = capacity;
    info.buffer = noBuffer ? nullptr : memory.data();
    uint32_t size = kUnset;
    const bool within = inside[index] > 0;
    const uint32_t status = Alone(index, [&] { return call(info, size); });
    Require(untouched(capacity) && info.capacity == capacity && info.buffer == (noBuffer ? nullptr : memory.data()));
    if (info.width == kUnset) {
        Require(size == kUnset);
        Require((!within && status != Status_BufferTooSmall) || untouched(0));
    } else {
        Require(status == Status_Ok && size <= capacity && size > info.prefix && info.height > 0);
        Require(info.pixels == info.buffer + info.prefix);
        Require(std::all_of(info.buffer, info.buffer + info.prefix, [](uint8_t byte) { return byte == 0; }));
        if (written != nullptr)
            *written = size;
    }
    return status;
}

void World::Sound(size_t index, uint8_t how) {
    const Frame frame = Make(how | 8);
    const uint32_t capacity = (how & 0x20) != 0 ? Capacity(how >> 2) : 576'000;
    std::vector<uint8_t> memory(capacity + kCanaryBytes, kCanary);
    DecodedAudioInfo info{};
    info.capacity = capacity;
    info.pcm = memory.data();
    uint32_t size = 0;
    const uint32_t status =
        Alone(index, [&] { return Corvane_DecodeAudio(channels[index], &frame.header, &info, &size); });
    Require(size == 0 || status == Status_Ok);
    Require(size <= capacity &&
            std::all_of(memory.begin() + size, memory.end(), [](uint8_t byte) { return byte == kCanary; }));
}

// A buffer of the told size and the prefix is enough, and a byte less than what was written is too little.
void World::Told(size_t index, uint8_t how) {
    const Frame frame = Make(how);
    const uint32_t format = how % 20u, prefix = Prefix(how >> 5 & 3);
    const bool alone = inside[index] == 0 && (index == 1 || !twoThreads);
    if (alone)
        Corvane_SetChannelOption(channels[index], CORVANE_OPTION_RAW_FORMAT, format, 0);
    DecodedPictureSize told{};
    uint32_t bytes = kUnset, written = 0;
    Alone(index, [&] { return Corvane_DecodeVideoDecodeOnly(channels[index], &frame.header, &told, &bytes); });
    if (!alone || told.width == 0 || bytes > 4 << 20)
        return;
    const auto get = [&](DecodedVideoInfo& info, uint32_t& size) {
        return Corvane_GetDecodedVideoFrame(channels[index], 0, &info, format, prefix, &size);
    };
    const int before = sizesSet;
    Require(Pull(index, bytes + prefix, false, get, &written) != Status_BufferTooSmall);
    if (written != 0 && format != CORVANE_PICTURE_JPEG && sizesSet == before)
        Require(Pull(index, written - 1, false, get) != Status_Ok);
}

void World::Option(void* channel, uint8_t how) {
    constexpr int32_t kIds[] = {6, 14, 15, 16, 17, 18, 22, 35, 46, 47, 48, 52, 53, 57, 1000, 16};
    const int32_t id = kIds[how & 15];
    const uint32_t value = how >> 4;
    if (id == CORVANE_OPTION_RAW_PREFIX)
        Corvane_SetChannelOption(channel, id, Prefix(static_cast<uint8_t>(value)), 0);
    else if (id == CORVANE_OPTION_RAW_CALLBACK || id == CORVANE_OPTION_RAW_CALLBACK_2)
        Corvane_SetChannelOption(channel, id, reinterpret_cast<uint64_t>(this),
                                 value < 4 ? 0 : reinterpret_cast<uint64_t>(&OnRaw));
    else if (id == CORVANE_OPTION_DECODER_THREADS)
        Corvane_SetChannelOption(channel, id, value % 3 + 1, 0);
    else if (id == 14 || id == 15)
        Corvane_SetChannelOption(channel, id, value != 0, 0);
    else
        Corvane_SetChannelOption(channel, id, (how & 15) == 15 ? value + 3 : value, value);
}

// From inside one of its calls a channel cannot be deleted, nor its instance released.
void World::Delete(size_t index, uint8_t how) {
    const auto destroy = (how & 1) != 0 ? &Corvane_DeleteDecoderChannel : &Corvane_DeleteChannel;
    void* handle = channels[index];
    if (inside[index] > 0) {
        Require(destroy(instance, &handle) == Status_Failed && handle == channels[index]);
        void* own = instance;
        Require(Corvane_Release(&own) == Status_Failed && own == instance);
    } else if (index == 1) {
        Require(destroy(instance, &channels[1]) == Status_Ok && channels[1] == nullptr);
    }
}

void World::Step(bool main, uint8_t what, uint8_t how) {
    const size_t index = main ? what >> 7 : 0;
    void* const channel = channels[index];
    if (channel == nullptr)
        return Create(index, how);
    switch (what & 15) {
    case 0:
    case 1:
    case 2: {
        const Frame frame = Make(how);
        Pull(index, Capacity(what >> 3), what == 2, [&](DecodedVideoInfo& info, uint32_t& size) {
            return Corvane_DecodeVideo(channel, &frame.header, &info, &size);
        });
        break;
    }
    case 3:
        Sound(index, how);
        break;
    case 4:
    case 5:
        Told(index, how);
        break;
    case 6:
        Pull(index, Capacity(how), false, [&](DecodedVideoInfo& info, uint32_t& size) {
            return Corvane_GetDecodedVideoFrame(channel, how, &info, (what >> 2) % 20u, Prefix(how >> 4), &size);
        });
        break;
    case 7:
        Option(channel, how);
        break;
    case 8: {
        Filter& filter = filters[how & 1];
        if ((how & 6) != 0)
            Corvane_InsertFilter(channel, &filter);
        else
            Corvane_RemoveFilter(channel, &filter);
        break;
    }
    case 9: {
        constexpr uint32_t kSides[] = {1,          2, 16,  33, 63,     321, 640, 0x80000000,
                                       0xFFFFFFFF, 0, 128, 7,  17'000, 96,  32,  200};
        Corvane_SetDecodeSize(channel, kSides[how & 15], kSides[how >> 4]);
        ++sizesSet;
        break;
    }
    case 10:
        Delete(index, how);
        break;
    case 11: {    // what decoder channels have not, and what says nothing
        uint32_t size = 0;
        Require(Corvane_StartChannel(channel, 0) == Status_WrongChannelType);
        Require(Corvane_StopAVIChannel(channel) == Status_WrongChannelType);
        Require(Corvane_DecodeVideo(channel, nullptr, nullptr, &size) == Status_InvalidArgument);
        Require(Corvane_SetChannelOption(channel, how - 260, 0, 0) == Status_NotSupported);
        break;
    }
    case 12:
        fails = true;
        break;
    default: {
        const Frame frame = Make(how);
        Alone(index, [&] { return Corvane_InputToBeDecodedMediaFrame(channel, &frame.header); });
        break;
    }
    }
}

// Every frame that was taken has ended.
void World::Finish() {
    for (void*& channel : channels) {
        if (channel == nullptr)
            continue;
        ChannelStatistics told{};
        told.recordSize = sizeof told;
        Require(Corvane_GetChannelStatistics(channel, &told) == Status_Ok);
        Require(told.framesTaken == told.soundFrames + told.unitsWithoutDecoder + told.unitsAwaitingKeyFrame +
                                        told.unitsFailed + told.unitsWithoutPicture + told.picturesDecoded);
        Require(told.soundFrames == told.soundHeard + told.soundLostDecoder);
        Require(told.picturesDecoded - told.picturesReplaced - told.picturesHandedOver <= 1);
    }
    Require(Corvane_Release(&instance) == Status_Ok && instance == nullptr);
}

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    World world(data + 1, size - 1);
    world.twoThreads = (data[0] & 1) != 0;
    const uint32_t flags =
        (data[0] >> 1 & 1u) * CORVANE_FLAG_DECODE_ONLY | (data[0] >> 2 & 1u) * CORVANE_FLAG_DECODER_FALLBACK;
    Require(Corvane_Initial(&world.instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, flags) == Status_Ok);
    world.Create(0, 11 | 1);
    Require(world.channels[0] != nullptr);
    mainThread = true;
    std::thread second;
    if (world.twoThreads)
        second = std::thread([&] { world.Run(false); });
    world.Run(true);
    if (second.joinable())
        second.join();
    world.Finish();
    return 0;
}
