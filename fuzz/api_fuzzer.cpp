// The bytes are calls: create, start, feed good and bad, options, filters, windows, stop, delete, from the main thread,
// from a second one, and from inside every callback. Whatever the order, nothing crashes, hangs or leaks. The windows
// stand on a private X server, and are moved, hidden and destroyed by their owner as the bytes want it.
#include <cairo.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "SmallStreams.h"
#include "corvane/corvane.h"
#include "corvane/filter.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

constexpr int kChannels = 3;
constexpr int kWindows = 4;
constexpr int kMaxCalls = 400;

// Hands out bytes to all threads; an emptied source gives zeros.
class Source {
public:
    Source(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    bool Next(uint8_t& first, uint8_t& second) {
        const std::lock_guard lock(m_mutex);
        if (m_at + 2 > m_size || ++m_calls > kMaxCalls)
            return false;
        first = m_data[m_at++];
        second = m_data[m_at++];
        return true;
    }
    // Up to `count` bytes from the position on, not consumed.
    std::vector<uint8_t> Peek(size_t count) {
        const std::lock_guard lock(m_mutex);
        return std::vector<uint8_t>(m_data + m_at, m_data + m_at + std::min(count, m_size - m_at));
    }

private:
    std::mutex m_mutex;
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
    int m_calls = 0;
};

// One server for all runs. Where none can be started the ids name no windows, which the library must handle as well.
struct Screen {
    corvane::test::XServer server;
    corvane::test::XClient client{server.Display()};
};
Screen& TheScreen() {
    static Screen screen;
    return screen;
}

struct World;

struct Filter final : QMRX::Filter::IFilter {
    World* world = nullptr;
    int32_t Process(QMRX::Filter::FilterArgs* args) override;
};

// Two instances of one channel each, whose callbacks stop, delete and release channel and instance of the other. A
// thread uses or ends a side only while it holds the claim of that side, and does nothing where another thread holds
// it. A real client has a lock there.
struct Duel {
    struct Side {
        Duel* duel = nullptr;
        int index = 0;
        void *instance = nullptr, *channel = nullptr;
        std::atomic<bool> claimed{false};
    } sides[2];
    std::atomic<uint8_t> orders{0};    // two bits a side: the actions of its callbacks

    void Begin();
    void Act(Side& side);
    void Feed(uint8_t how);
    void End();
};

struct World {
    explicit World(const uint8_t* data, size_t size) : source(data, size) { filter.world = this; }

    Source source;
    void* instance = nullptr;
    // A handle may be used by one client thread while it is not being deleted by another: deletion of a channel belongs
    // to the main thread, and the second thread works on channel 0, which lives to the end.
    std::array<void*, kChannels> channels{};
    Filter filter;
    Duel duel;
    std::atomic<int64_t> time{0};
    std::array<std::atomic<xcb_window_t>, kWindows> windows{};    // changed by the main thread only

    void Feed(void* channel, uint8_t how);
    void Option(void* channel, uint8_t how);
    void Step(bool inCallback, bool secondThread);
    void Create(int index, uint8_t how);
    void Window(void* channel, uint8_t how);
    void Owner(uint8_t how);
    void Snapshot(void* channel, uint8_t how);
    void Display(void* channel, uint8_t how);
};

// In a callback at most one call in four is made, so that streams also run.
void Inside(void* context) {
    auto* const world = static_cast<World*>(context);
    static thread_local uint32_t turn = 0;
    static thread_local bool inside = false;
    if (inside || ++turn % 4 != 0)
        return;
    inside = true;
    world->Step(true, false);
    inside = false;
}

int32_t Filter::Process(QMRX::Filter::FilterArgs* args) {
    std::memcpy(args->destination->plane[0], args->source->plane[0], args->width);
    Inside(world);
    return 0;
}

void OnPicture(void* context, const PseudoFrame* frame) {
    uint8_t sum = 0;
    for (uint32_t i = 0; i < frame->size; ++i)
        sum = static_cast<uint8_t>(sum + frame->data[i]);
    static std::atomic<uint8_t> sink;    // the sum is used: every byte is read
    sink = sum;
    Inside(context);
}

void OnRaw(void* context, uint32_t, void* record) {
    auto& info = *static_cast<RawPictureInfo*>(record);    // there is no sound
    info.repeat = info.count < info.header[28] % 4u;       // by the time of the frame
    info.requestedFormat = info.format + 5;
    static std::atomic<uint8_t> sink;
    sink = info.buffer[info.size - 1];
    Inside(context);
}

void OnText(void* context, OsdInfo* info) {
    auto* const cairo = info->deviceContext;
    cairo_rectangle(cairo, 0, 0, info->width, info->height / 2.0);
    cairo_fill(cairo);
    Inside(context);
}

void OnAfter(void* context, const AfterDisplayRecord*) {
    Inside(context);
}

void OnStreamInfo(void* context, uint32_t, uint64_t, uint64_t) {
    Inside(context);
}

void Duel::Begin() {
    for (int i = 0; i < 2; ++i) {
        Side& side = sides[i];
        side.duel = this;
        side.index = i;
        Corvane_Initial(&side.instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
        ChannelSettings settings{};
        settings.mask = 0x0005;
        settings.streamInfoContext = &side;
        settings.streamInfo = [](void* context, uint32_t, uint64_t, uint64_t) {
            auto& own = *static_cast<Side*>(context);
            own.duel->Act(own);
        };
        Corvane_CreateChannel(side.instance, &side.channel, &settings);
        Corvane_RegisterRawDataCallback(
            side.channel,
            [](void* context, const PseudoFrame*) {
                auto& own = *static_cast<Side*>(context);
                own.duel->Act(own);
            },
            &side, 4, 0);
        Corvane_StartChannel(side.channel, 0);
    }
}

void Duel::Act(Side& side) {
    Side& other = sides[1 - side.index];
    const int order = orders >> (2 * side.index) & 3;
    if (order == 0 || other.claimed.exchange(true))
        return;
    if (order == 1 && other.channel != nullptr)
        Corvane_StopChannel(other.channel);
    if (order == 2 && other.channel != nullptr)
        Corvane_DeleteChannel(other.instance, &other.channel);
    if (order == 3 && other.instance != nullptr && Corvane_Release(&other.instance) == Status_Ok)
        other.channel = nullptr;
    other.claimed = false;
}

void Duel::Feed(uint8_t how) {
    if (sides[0].duel == nullptr)    // most runs have none: threads take long here
        Begin();
    orders = how >> 4;
    for (Side& side : sides) {
        if ((how >> side.index & 1) != 0 || side.claimed.exchange(true))
            continue;
        MediaFrameHeader header{};
        header.recordSize = sizeof header;
        header.data = kJpeg;
        header.payloadSize = sizeof kJpeg;
        header.streamType = CORVANE_STREAM_JPEG;
        if (side.channel != nullptr) {
            Corvane_StartChannel(side.channel, 0);
            Corvane_InputEncodedMediaFrame(side.channel, &header);
        }
        side.claimed = false;
    }
}

void Duel::End() {
    for (Side& side : sides) {
        while (side.claimed.exchange(true))
            std::this_thread::yield();
        Corvane_Release(&side.instance);
        side.channel = nullptr;
        side.claimed = false;
    }
}

void World::Create(int index, uint8_t how) {
    if (channels[static_cast<size_t>(index)] != nullptr)
        return;
    ChannelSettings settings{};
    settings.mask = 0x000F | (how & 0x60u) << 8;
    settings.osd = &OnText;
    settings.osdContext = this;
    settings.window = windows[how % kWindows];
    settings.hasBorder = how & 1;
    settings.border[how & 3] = how;
    settings.streamInfo = &OnStreamInfo;
    settings.streamInfoContext = this;
    settings.presentEnabled = 1;
    Corvane_CreateChannel(instance, &channels[static_cast<size_t>(index)], &settings);
}

void World::Feed(void* channel, uint8_t how) {
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    const int64_t now = time.fetch_add(1 + (how >> 6));
    header.streamSeconds = static_cast<uint32_t>(now / 1000);
    header.timeMilliseconds = static_cast<uint32_t>(now % 1000);
    header.timeSeconds = header.streamSeconds;
    std::vector<uint8_t> noise;
    const auto payload = [&](const uint8_t* data, size_t size, uint32_t type, uint32_t frameType) {
        header.data = data;
        header.payloadSize = static_cast<uint32_t>(size);
        header.streamType = type;
        header.frameType = frameType;
    };
    switch (how & 7) {
    case 0:
    case 1:
        payload(kJpeg, sizeof kJpeg, CORVANE_STREAM_JPEG, 0);
        break;
    case 2:
        payload(kH264Key, sizeof kH264Key, CORVANE_STREAM_H264, 0);
        break;
    case 3:
        payload(kH264Next, sizeof kH264Next, CORVANE_STREAM_H264, 1);
        break;
    case 4:
        noise = source.Peek(64);
        payload(noise.data(), noise.size(), CORVANE_STREAM_H264, how & 8 ? 0 : 1);
        break;
    case 5:
        noise = source.Peek(40);
        payload(kJpeg, sizeof kJpeg, CORVANE_STREAM_JPEG, 0);
        header.extension = noise.data();
        header.extensionSize = static_cast<uint32_t>(noise.size());
        break;
    case 6:
        payload(kJpeg, sizeof kJpeg, how & 8 ? CORVANE_STREAM_MULAW : CORVANE_STREAM_METADATA_XML, 0);
        break;
    default:
        payload(kJpeg, sizeof kJpeg / 2, how & 8 ? CORVANE_STREAM_JPEG : CORVANE_STREAM_MPEG4, 0);
        break;
    }
    Corvane_InputEncodedMediaFrame(channel, &header);
}

void World::Option(void* channel, uint8_t how) {
    DisplayArea area{};
    std::memset(&area, how, sizeof area);
    const int32_t id = how % 60;
    if (id == 11)
        Corvane_SetChannelOption(channel, id, reinterpret_cast<uint64_t>(&area), how);
    else if (id == 25 || id == 26)    // pointers
        Corvane_SetChannelOption(channel, id, id == 25 ? reinterpret_cast<uint64_t>("no such file") : 0, how);
    else if (id == 56)
        Corvane_SetChannelOption(channel, id, (how & 0x40) != 0 ? reinterpret_cast<uint64_t>(&OnText) : 0,
                                 reinterpret_cast<uint64_t>(this));
    else if (id == 18 || id == 22)
        Corvane_SetChannelOption(channel, id, reinterpret_cast<uint64_t>(this),
                                 (how & 0x80) != 0 ? 0 : reinterpret_cast<uint64_t>(&OnRaw));
    else if (id != 42 && id != 48)    // blocking input would wait for the clock; many threads only cost time
        Corvane_SetChannelOption(channel, id, how, how);
    ChannelUpdate update{};
    update.mask = how * 0x0101u;
    update.window = how;
    update.presentEnabled = 1;
    update.mediaMode = 3;
    if ((how & 0x80) != 0)
        Corvane_UpdateChannelSettings(channel, &update);
}

void World::Window(void* channel, uint8_t how) {
    ChannelUpdate update{};
    update.mask = (how & 0x40) != 0 ? 0x1000 : 0x0800 | (how & 0x80u) << 6;
    update.window = windows[how % kWindows];
    update.fullWindow = how >> 4 & 1;
    Corvane_UpdateChannelSettings(channel, &update);
    DisplayArea area{};
    area.overviewIsWindow = how >> 2 & 1;
    if (area.overviewIsWindow != 0)
        area.overview.window = windows[(how >> 3) % kWindows];
    else
        area.overview.rectangle[2] = area.overview.rectangle[3] = how;
    area.zoom.rectangle[2] = area.zoom.rectangle[3] = how / 2 + 1;
    area.overviewEnabled = how >> 4 & 1;
    area.zoomEnabled = how >> 5 & 1;
    Corvane_SetChannelOption(channel, 11, reinterpret_cast<uint64_t>(&area), 63);
}

// The actions of the windows' owner. None waits for the server.
void World::Owner(uint8_t how) {
    xcb_connection_t* const xcb = TheScreen().client.Xcb();
    std::atomic<xcb_window_t>& window = windows[how % kWindows];
    const uint32_t size[] = {how * 5u % 300 + 1, how * 3u % 200 + 1};
    switch (how >> 3 & 7) {
    case 0:
        xcb_destroy_window(xcb, window);
        window = xcb_generate_id(xcb);
        xcb_create_window(xcb, XCB_COPY_FROM_PARENT, window, TheScreen().client.Root(), 10, 10, 64, 48, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_map_window(xcb, window);
        break;
    case 1:
        xcb_unmap_window(xcb, window);
        break;
    case 2:
        xcb_map_window(xcb, window);
        break;
    case 3:
        xcb_reparent_window(xcb, window, windows[(how >> 6) % kWindows], 1, 1);
        break;
    default:
        xcb_configure_window(xcb, window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
        break;
    }
    xcb_flush(xcb);
}

void World::Snapshot(void* channel, uint8_t how) {
    std::vector<uint8_t> own(how * 64u);
    PictureBuffer picture{static_cast<uint32_t>(own.size()), 0, 0, 0, own.data()};
    const bool given = (how & 1) != 0 && !own.empty();
    const auto snap = (how & 2) != 0 ? &Corvane_GetCurrentSnapShot : &Corvane_GetZoomedSnapShot;
    // A grab of the window waits for the server: seldom.
    const uint32_t format = how < 8 ? 0 : (how & 0x80) != 0 ? (how >> 2 & 31u) << 16 | 4 : 1 + (how >> 2 & 1u);
    if (snap(channel, &picture, (given ? 8 : 0) | format) == Status_Ok && !given)
        Corvane_FreePicture(&picture);
}

void World::Display(void* channel, uint8_t how) {
    cairo_surface_t* const surface = (how & 1) != 0
                                         ? cairo_recording_surface_create(CAIRO_CONTENT_COLOR, nullptr)
                                         : cairo_image_surface_create(CAIRO_FORMAT_ARGB32, how >> 2, how & 15);
    cairo_t* const context = cairo_create(surface);
    DisplayFrameInfo info{};
    ((how & 2) != 0 ? &Corvane_GetCurrentDisplay : &Corvane_GetZoomedDisplay)(channel, context, &info);
    cairo_destroy(context);
    cairo_surface_destroy(surface);
}

void World::Step(bool inCallback, bool secondThread) {
    uint8_t what;
    uint8_t how;
    if (!source.Next(what, how))
        return;
    // Channels 1 and 2 come and go on the main thread: callbacks and the second thread keep to channel 0.
    const size_t index = inCallback || secondThread ? 0 : static_cast<size_t>(what >> 6) % kChannels;
    void* const channel = channels[index];
    if (channel == nullptr)
        return;
    QueueState state;
    ChannelStatistics statistics;
    switch (what & 31) {
    case 0:
    case 1:
        Corvane_StartChannel(channel, how);
        break;
    case 2:
        Corvane_StopChannel(channel);
        break;
    case 3:
        if (!inCallback && !secondThread && index != 0) {
            Corvane_DeleteChannel(instance, &channels[index]);
            Create(static_cast<int>(index), how);
        }
        break;
    case 4:
        Corvane_RegisterRawDataCallback(channel, &OnPicture, this, how % 13, how >> 7);
        break;
    case 5:
        Corvane_RegisterAfterDisplayCallback(channel, &OnAfter, this);
        break;
    case 6:
        Corvane_UnregisterAfterDisplayCallback(channel);
        break;
    case 7:
        Corvane_InsertFilter(channel, &filter);
        break;
    case 8:
        Corvane_RemoveFilter(channel, &filter);
        break;
    case 9:
        Corvane_EnableRotateFilter(channel, how * 3.7);
        break;
    case 10:
        Corvane_SetRotateOption(channel, how * -1.1);
        break;
    case 11:
        Corvane_DisableRotateFilter(channel);
        break;
    case 12:
        Corvane_SetRawDataCallbackSize(channel, how, how / 2u);
        break;
    case 13:
        Corvane_SetBufferTime(channel, how & 15);
        break;
    case 14:
        Corvane_SetDisplayMode(channel, how % 10);
        break;
    case 15:
        Corvane_GetRemainingQueueElementCount(channel, &state);
        statistics.recordSize = how * 2u;
        Corvane_GetChannelStatistics(channel, &statistics);
        break;
    case 16:
    case 17:
        Option(channel, how);
        break;
    case 18:
        std::this_thread::yield();
        break;
    case 19:
    case 20:
        Window(channel, how);
        break;
    case 21:
        if (!inCallback && !secondThread)
            Owner(how);
        break;
    case 22:
    case 23:
        Snapshot(channel, how);
        break;
    case 24:
        Display(channel, how);
        break;
    case 25:
        if (!inCallback && !secondThread)
            duel.Feed(how);
        break;
    default:
        Feed(channel, how);
        break;
    }
}

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    World world(data, size);
    for (auto& window : world.windows)
        window = TheScreen().client.Create({.width = 64, .height = 48});
    constexpr uint32_t kFlags[] = {0, CORVANE_FLAG_GDI_COMPOSE, CORVANE_FLAG_GDI_STRETCH, CORVANE_FLAG_NO_FALLBACK};
    Corvane_Initial(&world.instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, kFlags[size % 4]);
    for (int i = 0; i < kChannels; ++i)
        world.Create(i, 0);
    std::atomic<bool> more{size > 0 && (data[0] & 1) != 0};
    std::thread second;
    if (more)
        second = std::thread([&] {
            for (int i = 0; i < kMaxCalls / 4; ++i)
                world.Step(false, true);
        });
    for (int i = 0; i < kMaxCalls; ++i)
        world.Step(false, false);
    if (second.joinable())
        second.join();
    for (size_t i = kChannels; --i > 0;)    // their callbacks use channel 0, which goes last
        Corvane_DeleteChannel(world.instance, &world.channels[i]);
    Corvane_Release(&world.instance);
    world.duel.End();
    for (const auto& window : world.windows)
        TheScreen().client.Destroy(window);
    return 0;
}
