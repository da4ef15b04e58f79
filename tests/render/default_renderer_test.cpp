// The default renderer on a scripted adapter: what it asks for, in which order, and what it makes of each failure.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "manager/RenderMgr.h"
#include "render/DDrawRenderer.h"
#include "support/Latch.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using Lines = std::vector<std::string>;

std::string Text(const Rect& rect) {
    return std::to_string(rect.left) + "," + std::to_string(rect.top) + "," + std::to_string(rect.right) + "," +
           std::to_string(rect.bottom);
}

class ScriptedBlitter;
std::string NameOf(BlitSurface& surface);

// Any kind of surface.
class ScriptedSurface final : public BlitComposite {
public:
    ScriptedSurface(ScriptedBlitter& script, std::string name, uint32_t width, uint32_t height);
    ~ScriptedSurface() override;
    BlitResult Lock(bool keepSystemFree, uint8_t** data, uint32_t* pitch) override;
    BlitResult Unlock() override { return Note("unlock"); }
    BlitResult Restore() override { return Note("restore"); }
    BlitResult Fill(const Rect& rect, uint32_t) override { return Note("fill " + Text(rect)); }
    BlitResult Blit(const Rect& to, BlitSurface& from, const Rect& source) override {
        return Note("blit " + NameOf(from) + " " + Text(source) + " to " + Text(to));
    }
    RasterView Drawing() override { return m_raster.View(); }
    BlitResult Begin(const BlitTarget&) override;

    const std::string name;
    SharedPicture picture;

private:
    BlitResult Note(const std::string& what);
    ScriptedBlitter& m_script;
    Raster m_raster;
};

std::string NameOf(BlitSurface& surface) {
    return static_cast<ScriptedSurface&>(surface).name;
}

class ScriptedBlitter final : public Blitter {
public:
    // The script. Results are taken from the front, then Ok.
    std::vector<Monitor> monitors{{7, {0, 0, 1920, 1080}}, {8, {1920, 0, 3200, 1024}}};
    std::optional<Monitor> current = monitors[0];
    bool refuseDevices = false;
    std::set<uint32_t> refusedFourCCs;
    bool wraps = false;    // reads the memory of others
    bool refuseComposites = false;
    std::map<std::string, std::vector<BlitResult>> results;    // by operation
    // What happened.
    Lines log;
    std::map<std::string, int> alive;

    // Surfaces come and go on the worker and on the render thread.
    BlitResult Log(const std::string& line) {
        const std::lock_guard lock(m_mutex);
        log.push_back(line);
        return BlitResult::Ok;
    }
    void Count(const std::string& name, int more) {
        const std::lock_guard lock(m_mutex);
        alive[name] += more;
    }
    BlitResult Take(const std::string& operation) {
        const std::lock_guard lock(m_mutex);
        auto& queue = results[operation];
        if (queue.empty())
            return BlitResult::Ok;
        const BlitResult result = queue.front();
        queue.erase(queue.begin());
        return result;
    }
    std::vector<Monitor> Enumerate() override { return monitors; }
    Monitor Desktop() override { return {99, {0, 0, 800, 600}}; }
    std::optional<Monitor> FindMonitor(const WindowWatchPtr& window) override {
        return window != nullptr || !current ? current : Desktop();
    }
    std::unique_ptr<BlitDevice> CreateDevice(const Monitor& monitor) override;

private:
    std::mutex m_mutex;
};

ScriptedSurface::ScriptedSurface(ScriptedBlitter& script, std::string called, uint32_t width, uint32_t height)
    : name(std::move(called)), m_script(script) {
    (void)m_raster.Resize(width, height + height / 2);    // for three planes
    m_script.Log("make " + name + " " + std::to_string(width) + "x" + std::to_string(height));
    m_script.Count(name, 1);
}
ScriptedSurface::~ScriptedSurface() {
    m_script.Count(name, -1);
}
BlitResult ScriptedSurface::Note(const std::string& what) {
    return m_script.Log(name + " " + what);
}
BlitResult ScriptedSurface::Begin(const BlitTarget&) {
    return m_script.Take("begin");
}
BlitResult ScriptedSurface::Lock(bool keepSystemFree, uint8_t** data, uint32_t* pitch) {
    (void)Note(keepSystemFree ? "lock" : "lock plainly");
    *data = m_raster.View().data;
    *pitch = static_cast<uint32_t>(m_raster.View().step);
    return m_script.Take("lock");
}

class ScriptedDevice final : public BlitDevice {
public:
    ScriptedDevice(ScriptedBlitter& script, const Monitor& monitor) : m_script(script), m_monitor(monitor) {}
    std::unique_ptr<BlitSurface> CreateVideo(uint32_t width, uint32_t height, uint32_t fourCC) override {
        const std::string name = fourCC == kFourCCNV12 ? "NV12" : "YV12";
        m_script.Log("ask " + name);
        return m_script.refusedFourCCs.contains(fourCC) ? nullptr : Make(name, width, height);
    }
    std::unique_ptr<BlitSurface> WrapVideo(SharedPicture picture) override {
        if (!m_script.wraps)
            return nullptr;
        auto made = Make("wrap", picture.Get().width, picture.Get().height);
        made->picture = std::move(picture);
        return made;
    }
    std::unique_ptr<BlitComposite> CreateComposite(uint32_t width, uint32_t height) override {
        return m_script.refuseComposites ? nullptr : Make("composite", width, height);
    }
    std::unique_ptr<BlitSurface> CreateTextSystem(uint32_t width, uint32_t height) override {
        return Make("system", width, height);
    }
    std::unique_ptr<BlitSurface> CreateText(uint32_t width, uint32_t height) override {
        return Make("text", width, height);
    }
    BlitResult GetScanLine(const WindowWatch&, uint32_t* line) override {
        *line = 0;
        return m_script.Take("line");
    }
    BlitResult IsLost(const WindowWatch&) override { return m_script.Take("lost"); }
    BlitResult RestorePrimary(const WindowWatch&) override { return m_script.Take("restore"); }
    BlitResult Recreate() override { return m_script.Log("recreate"); }
    BlitResult Copy(const WindowWatch&, const Rect& to, BlitComposite&, const Rect& source) override {
        m_script.Log("copy " + Text(source) + " to " + Text(to) + " of " + std::to_string(m_monitor.handle));
        return m_script.Take("copy");
    }

private:
    std::unique_ptr<ScriptedSurface> Make(const std::string& name, uint32_t width, uint32_t height) {
        return std::make_unique<ScriptedSurface>(m_script, name, width, height);
    }
    ScriptedBlitter& m_script;
    const Monitor m_monitor;
};

std::unique_ptr<BlitDevice> ScriptedBlitter::CreateDevice(const Monitor& monitor) {
    Log("device " + std::to_string(monitor.handle));
    return refuseDevices ? nullptr : std::make_unique<ScriptedDevice>(*this, monitor);
}

class ScriptedWatch final : public WindowWatch {
public:
    explicit ScriptedWatch(const Rect& place) : outer(place) {}
    Rect outer;
    Life life = Life::Alive;
    bool viewable = true, serverLost = false;
    uintptr_t Window() const override { return 1; }
    Life GetLife() const override { return life; }
    bool Viewable() const override { return viewable; }
    Size ClientSize() const override {
        return {static_cast<uint32_t>(outer.Width()), static_cast<uint32_t>(outer.Height())};
    }
    std::optional<Rect> ScreenRect() const override { return outer; }
    uint32_t MonitorIndex() const override { return 0; }
    bool ServerLost() const override { return serverLost; }
    void AddListener(Listener*) override {}
    void RemoveListener(Listener*) override {}
};

// A renderer with a window of 100 x 80 at (50, 40), driven by hand.
struct Stage {
    Stage() {
        info.window = watch;
        info.osd = [](void* context, OsdInfo* text) { static_cast<Stage*>(context)->texts.push_back(*text); };
        info.osdContext = this;
        info.osdPolicy = 2;
    }
    void Start() { renderer = std::make_unique<CDDrawRenderer>(info, blitter); }
    int32_t Lend(uint32_t wish = PF_I420, uint32_t width = 64, uint32_t height = 48) {
        format = wish;
        return renderer->GetBuffer(width, height, &buffer, &stride, &format);
    }
    int32_t Pass(uint32_t seconds = 5) {
        MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_H264, {}, true, 1);
        header.timeSeconds = seconds;
        const FramePtr frame = std::make_shared<MediaFrameImpl>(header);
        renderer->Prepare(info);
        renderer->Latch(info);
        return renderer->Present(&frame, &info);
    }
    int Alive(const char* name) { return blitter.alive[name]; }

    ScriptedBlitter blitter;
    std::shared_ptr<ScriptedWatch> watch = std::make_shared<ScriptedWatch>(Rect{50, 40, 150, 120});
    RenderInfo info;
    std::vector<OsdInfo> texts;
    std::unique_ptr<CDDrawRenderer> renderer;
    uint8_t* buffer = nullptr;
    uint32_t stride = 0, format = 0;
};

// Each row: a channel shows a picture, then something happens to it, then comes another pass, another buffer and, with
// what was lost mended, one more pass.
TEST(DefaultRenderer, WhatFailsInAPass) {
    const struct {
        const char* name;
        std::function<void(Stage&)> happen;
        int32_t present;
        int video,
            composite;    // surfaces that live on after the pass; of a failed one the worker's next call frees it
        int32_t lend, next;
        const char* trace = nullptr;    // in the log of the pass
    } rows[] = {
        {"nothing", [](Stage&) {}, 0, 1, 1, 0, 0, "copy 0,0,100,80 to 50,40,150,120 of 7"},
        {"no window any more", [](Stage& s) { s.info.window = nullptr; }, 0, 1, 1, 0, 0},
        {"window destroyed", [](Stage& s) { s.watch->life = WindowWatch::Life::Dead; }, 0, 1, 0, 0, 0},
        {"window not known yet", [](Stage& s) { s.watch->life = WindowWatch::Life::Unknown; }, 0, 1, 1, 0, 0},
        {"window not viewable", [](Stage& s) { s.watch->viewable = false; }, 0, 1, 1, 0, 0},
        {"window on another monitor",
         [](Stage& s) {
             s.blitter.current = s.blitter.monitors[1];
             s.watch->outer = {2000, 50, 2100, 130};
         },
         0, 0, 1, 0, 0, "copy 0,0,100,80 to 80,50,180,130 of 8"},
        {"a monitor that came later",
         [](Stage& s) {
             s.blitter.current = Monitor{9, {-100, 0, 0, 100}};
         },
         0, 0, 1, 0, 0, "device 9"},
        {"monitor not told", [](Stage& s) { s.blitter.current.reset(); }, -1, 1, 0, 0, -1},
        {"device of the next monitor refused",
         [](Stage& s) {
             s.blitter.current = Monitor{9, {}};
             s.blitter.refuseDevices = true;
         },
         -1, 0, 0, -1, -1},
        {"surface set refused",
         [](Stage& s) {
             s.blitter.refuseComposites = true;
             s.watch->outer.right = 170;
         },
         -1, 1, 0, 0, -1},
        {"server gone",
         [](Stage& s) {
             s.watch->life = WindowWatch::Life::Dead;
             s.watch->serverLost = true;
         },
         -1, 1, 0, -1, -1},
        {"screen lost", [](Stage& s) { s.blitter.results["copy"] = {BlitResult::SurfaceLost}; }, -1, 1, 0, -1, 0},
        {"copy fails otherwise", [](Stage& s) { s.blitter.results["copy"] = {BlitResult::InvalidArgument}; }, 0, 1, 0,
         0, 0},
        {"screen still drawing", [](Stage& s) { s.blitter.results["copy"] = {BlitResult::StillDrawing}; }, 0, 1, 1, 0,
         0},
        {"composite still read", [](Stage& s) { s.blitter.results["begin"] = {BlitResult::StillDrawing}; }, 0, 1, 1, 0,
         0},
        {"composite lost", [](Stage& s) { s.blitter.results["begin"] = {BlitResult::SurfaceLost}; }, -1, 1, 0, -1, 0},
        {"window resized meanwhile", [](Stage& s) { s.blitter.results["begin"] = {BlitResult::InvalidArgument}; }, 0, 1,
         1, 0, 0, "copy"},
        {"primary lost, another mode",
         [](Stage& s) {
             s.blitter.results["lost"] = {BlitResult::SurfaceLost};
             s.blitter.results["restore"] = {BlitResult::WrongMode};
         },
         0, 1, 1, 0, 0, "recreate"},
        {"video lock of the old kind", [](Stage& s) { s.blitter.results["lock"] = {BlitResult::InvalidArgument}; }, 0,
         1, 1, 0, 0, "YV12 lock plainly"},
        {"video lost and restored", [](Stage& s) { s.blitter.results["lock"] = {BlitResult::SurfaceLost}; }, 0, 1, 1, 0,
         0, "YV12 restore"},
        {"video cannot be locked",
         [](Stage& s) {
             s.blitter.results["lock"] = {BlitResult::SurfaceLost, BlitResult::SurfaceLost};
         },
         0, 0, 1, 0, 0},
        {"presenting is off", [](Stage& s) { s.info.presentEnabled = false; }, 0, 1, 1, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Stage stage;
        stage.Start();
        ASSERT_EQ(stage.Lend(), 0);
        ASSERT_EQ(stage.Pass(), 0);
        ASSERT_EQ(stage.Alive("composite") * 10 + stage.Alive("YV12"), 11);
        stage.blitter.log.clear();
        row.happen(stage);
        EXPECT_EQ(stage.Pass(), row.present);
        EXPECT_EQ(stage.Alive("YV12"), row.video);
        EXPECT_EQ(stage.Alive("composite"), row.composite);
        if (row.trace != nullptr)
            EXPECT_TRUE(std::ranges::any_of(stage.blitter.log, [&](const std::string& line) {
                return line.starts_with(row.trace);
            })) << testing::PrintToString(stage.blitter.log);
        EXPECT_EQ(stage.Lend(), row.lend);
        if (row.lend == 0)
            EXPECT_EQ(stage.Alive("YV12"), 1);
        EXPECT_EQ(stage.Pass(), row.next);
        stage.renderer.reset();
        EXPECT_EQ(stage.Alive("YV12") + stage.Alive("composite") + stage.Alive("system") + stage.Alive("text"), 0);
        EXPECT_EQ(stage.blitter.Devices().Users(), 0u);
    }
}

TEST(DefaultRenderer, GoesOnWithAnotherWindow) {
    Stage stage;
    stage.Start();
    ASSERT_EQ(stage.Lend(), 0);
    ASSERT_EQ(stage.Pass(), 0);
    stage.watch->life = WindowWatch::Life::Dead;
    ASSERT_EQ(stage.Pass(), 0);
    stage.info.window = std::make_shared<ScriptedWatch>(Rect{0, 0, 30, 30});
    stage.blitter.log.clear();
    ASSERT_EQ(stage.Pass(), 0);
    EXPECT_EQ(stage.blitter.log.back(), "copy 0,0,30,30 to 0,0,30,30 of 7");
    EXPECT_EQ(stage.Alive("YV12"), 1) << "the picture stays";
}

TEST(DefaultRenderer, SurfaceOfEachFormat) {
    Stage stage;
    stage.Start();
    const auto asked = [&](const char* name) { return std::ranges::count(stage.blitter.log, name); };
    ASSERT_EQ(stage.Lend(PF_NV12), 0);
    EXPECT_EQ(stage.format, uint32_t{PF_NV12});
    ASSERT_EQ(stage.Lend(PF_BGRA32), 0);
    EXPECT_EQ(stage.format, uint32_t{PF_YV12});
    EXPECT_EQ(stage.Alive("NV12") * 10 + stage.Alive("YV12"), 1);
    uint8_t* const first = stage.buffer;
    ASSERT_EQ(stage.Lend(), 0);
    EXPECT_EQ(stage.buffer, first) << "kept";
    ASSERT_EQ(stage.Lend(PF_I420, 66, 48), 0);
    EXPECT_EQ(asked("ask YV12"), 2);
    stage.blitter.refusedFourCCs = {kFourCCNV12};
    ASSERT_EQ(stage.Lend(PF_NV12), 0);
    EXPECT_EQ(stage.format, uint32_t{PF_YV12});
    stage.blitter.refusedFourCCs = {};
    ASSERT_EQ(stage.Lend(PF_NV12), 0);
    EXPECT_EQ(stage.format, uint32_t{PF_YV12});
    EXPECT_EQ(asked("ask NV12"), 2) << "refused once is refused for good";
    stage.blitter.results["lock"] = {BlitResult::Failed};
    EXPECT_LT(stage.Lend(PF_I420, 70, 48), 0) << "cannot be locked";
    stage.blitter.refusedFourCCs = {kFourCCYV12};
    EXPECT_EQ(stage.Lend(), -1);
}

// Where the adapter reads the memory of others; the picture is let go when another comes, and with the renderer.
TEST(DefaultRenderer, TakesPicturesByReference) {
    Stage stage;
    stage.Start();
    test::PlainPicture first(64, 48), pairs(64, 48);
    first.Share();
    pairs.Share();
    pairs.frame.strides[2] = 0;
    EXPECT_FALSE(stage.renderer->TakePicture(first.frame));
    EXPECT_EQ(first.references, 0);
    ASSERT_EQ(stage.Lend(), 0);
    stage.blitter.wraps = true;
    ASSERT_TRUE(stage.renderer->TakePicture(first.frame));
    EXPECT_EQ(first.references * 10 + stage.Alive("YV12"), 10);
    stage.blitter.log.clear();
    ASSERT_EQ(stage.Pass(), 0);
    EXPECT_TRUE(std::ranges::count(stage.blitter.log, "composite blit wrap 0,0,64,48 to 0,0,100,80"));
    EXPECT_EQ(std::ranges::count_if(stage.blitter.log, [](auto& line) { return line.starts_with("wrap"); }), 0)
        << "neither unlocked nor locked";
    ASSERT_TRUE(stage.renderer->TakePicture(pairs.frame));
    EXPECT_EQ(first.references * 10 + pairs.references, 1);
    stage.blitter.refusedFourCCs = {kFourCCNV12};
    ASSERT_EQ(stage.Lend(PF_NV12), 0);    // a buffer of its own again, and no NV12 from now on
    EXPECT_EQ(pairs.references * 10 + stage.Alive("YV12"), 1);
    EXPECT_FALSE(stage.renderer->TakePicture(pairs.frame));
    ASSERT_TRUE(stage.renderer->TakePicture(first.frame));
    stage.blitter.current = Monitor{9, {}};    // another monitor: the picture goes with its device
    ASSERT_EQ(stage.Pass(), 0);
    EXPECT_EQ(first.references, 0);
    ASSERT_TRUE(stage.renderer->TakePicture(first.frame));
    stage.blitter.results["copy"] = {BlitResult::SurfaceLost};
    EXPECT_EQ(stage.Pass(), -1);
    EXPECT_FALSE(stage.renderer->TakePicture(first.frame)) << "no device";
    EXPECT_EQ(first.references, 0);
    stage.renderer.reset();
    EXPECT_EQ(stage.Alive("wrap"), 0);
}

TEST(DefaultRenderer, OrderOfAPass) {
    Stage stage;
    auto overview = std::make_shared<ScriptedWatch>(Rect{300, 200, 340, 230});
    stage.info.overviewWindow = overview;
    stage.info.area.overviewEnabled = stage.info.area.overviewIsWindow = 1;
    stage.info.area.overviewMargin[0] = 5;    // of the plain renderer only
    stage.info.margin = {.left = 10, .top = 20};
    stage.Start();
    ASSERT_EQ(stage.Lend(), 0);
    stage.blitter.log.clear();
    ASSERT_EQ(stage.Pass(), 0);
    EXPECT_EQ(
        stage.blitter.log,
        (Lines{"make composite 420x80", "YV12 unlock", "composite fill 0,0,100,20", "composite fill 0,20,10,80",
               "composite blit YV12 0,0,64,48 to 10,20,100,80", "composite blit YV12 0,0,64,48 to 100,0,140,30",
               "YV12 lock", "make system 100x80", "make text 100x81", "text fill 0,0,100,81", "system fill 0,0,100,80",
               "text blit system 0,0,100,80 to 0,0,100,80", "composite blit text 0,0,100,80 to 0,0,100,80",
               "copy 0,0,100,80 to 50,40,150,120 of 7", "copy 100,0,140,30 to 300,200,340,230 of 7"}));
    stage.watch->outer = {50, 40, 110, 120};    // upright: the room is below
    stage.blitter.log.clear();
    ASSERT_EQ(stage.Pass(), 0);
    EXPECT_EQ(stage.blitter.log.front(), "make composite 60x320");
    // A rectangle on the window: text keeps off it.
    stage.info.area.overviewIsWindow = 0;
    const int32_t place[4] = {60, 50, 80, 70};
    std::copy(std::begin(place), std::end(place), stage.info.area.overview.rectangle);
    stage.blitter.log.clear();
    ASSERT_EQ(stage.Pass(), 0);
    Lines tail(stage.blitter.log.end() - 5, stage.blitter.log.end());
    EXPECT_EQ(tail, (Lines{"composite blit text 0,0,60,10 to 0,0,60,10", "composite blit text 0,30,60,80 to 0,30,60,80",
                           "composite blit text 0,10,10,30 to 0,10,10,30",
                           "composite blit text 30,10,60,30 to 30,10,60,30", "copy 0,0,60,80 to 50,40,110,120 of 7"}));
    // Without text its surfaces go; without a picture all is black.
    stage.info.osd = nullptr;
    stage.blitter.results["lock"] = {BlitResult::Failed};
    ASSERT_EQ(stage.Pass(), 0);
    EXPECT_EQ(stage.Alive("text") + stage.Alive("system"), 0);
    stage.blitter.log.clear();
    ASSERT_EQ(stage.Pass(), 0);
    EXPECT_EQ(stage.blitter.log, (Lines{"composite fill 0,0,60,80", "copy 0,0,60,80 to 50,40,110,120 of 7"}));
}

TEST(DefaultRenderer, TextRefresh) {
    Stage stage;
    stage.info.osdPolicy = 3;    // the wall clock does not count
    stage.info.infoDirty = true;
    stage.Start();
    ASSERT_EQ(stage.Lend(), 0);
    const auto calls = [&](uint32_t seconds) {
        stage.texts.clear();
        EXPECT_EQ(stage.Pass(seconds), 0);
        return stage.texts.size();
    };
    ASSERT_EQ(calls(0), 1u) << "a first text, also at no time";
    EXPECT_EQ(stage.texts[0].width * 1000 + stage.texts[0].height, 100'080u);
    EXPECT_EQ(stage.texts[0].flags, uint32_t{CORVANE_OSD_FRESH});
    stage.info.infoDirty = false;
    EXPECT_EQ(calls(0), 0u);
    EXPECT_EQ(calls(1), 1u);
    stage.info.osdPolicy = 1;
    EXPECT_EQ(calls(2), 0u);
    stage.info.forceRedraw = true;
    EXPECT_EQ(calls(2), 1u);
    stage.info.forceRedraw = false;
    stage.watch->outer.right += 10;
    EXPECT_EQ(calls(2), 1u) << "another size";
    stage.info.fullWindow = true;
    EXPECT_EQ(calls(3), 0u);
    stage.info.fullWindow = false;
    stage.info.hasBorder = true;
    stage.info.border = {.left = 1, .right = 2, .top = 3, .bottom = 4};
    ASSERT_EQ(calls(3), 1u) << "text comes back";
    EXPECT_EQ(stage.texts[0].width * 1000 + stage.texts[0].height, 67'055u);
    EXPECT_EQ(stage.texts[0].flags, uint32_t{CORVANE_OSD_BORDER});
    stage.info.window = nullptr;
    stage.info.forceRedraw = true;
    stage.info.hasBorder = false;
    ASSERT_EQ(calls(4), 1u) << "on surfaces in memory, as large as the picture";
    EXPECT_EQ(stage.texts[0].width * 1000 + stage.texts[0].height, 64'048u);
}

TEST(DefaultRenderer, DeviceMap) {
    ScriptedBlitter blitter;
    blitter.monitors = {{0, {}}, {5, {}}};
    {
        const DeviceMap::Use first(blitter.Devices());
        const DeviceMap::Use second(blitter.Devices());
        EXPECT_EQ(blitter.log, Lines{"device 5"}) << "no monitor, no device; once for all";
        EXPECT_NE(first.Find({5, {}}), nullptr);
        EXPECT_EQ(first.Find({5, {}}), second.Find({5, {}}));
    }
    EXPECT_EQ(blitter.Devices().Users(), 0u);
    blitter.monitors.clear();
    const DeviceMap::Use use(blitter.Devices());
    EXPECT_EQ(blitter.log.back(), "device 99") << "that of the desktop, where nothing is told";
}

// What the manager and its client see of a renderer that cannot lend: the plain one in its place and code 9, once.
ScriptedBlitter* managed;
const RendererMakers kManaged{RendererMakers::Built().gdi, [](const RenderInfo& info) -> RendererPtr {
                                  return std::make_shared<CDDrawRenderer>(info, *managed);
                              }};

TEST(DefaultRenderer, WhatCannotLendGivesWayOnce) {
    const struct {
        const char* name;
        std::function<void(ScriptedBlitter&)> script;
        uint32_t flags;
        int codes, presents;
    } rows[] = {
        {"null window", [](ScriptedBlitter&) {}, 0, 0, 3},
        {"no device at construction", [](ScriptedBlitter& b) { b.refuseDevices = true; }, 0, 1, 3},
        {"both formats refused",
         [](ScriptedBlitter& b) {
             b.refusedFourCCs = {kFourCCNV12, kFourCCYV12};
         },
         0, 1, 3},
        {"the same, fall-back forbidden",
         [](ScriptedBlitter& b) {
             b.refusedFourCCs = {kFourCCNV12, kFourCCYV12};
         },
         CORVANE_FLAG_NO_FALLBACK, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedBlitter blitter;
        managed = &blitter;
        row.script(blitter);
        std::atomic<int> codes{0}, presents{0};
        CRenderMgr manager(&manager, 0, row.flags, Clock::System(), kManaged);
        manager.SetStreamInfo([](void* count, uint32_t code, uint64_t,
                                 uint64_t) { *static_cast<std::atomic<int>*>(count) += code == 9 ? 1 : 0; },
                              &codes);
        manager.SetAfterDisplay(
            [](void* count, const AfterDisplayRecord*) { ++*static_cast<std::atomic<int>*>(count); }, &presents);
        test::PlainPicture picture(64, 48);
        for (int i = 0; i < 3; ++i) {
            manager.PresentFrame(test::MakeFrame(CORVANE_STREAM_H264, {1}, true, 40 * i), picture.frame, true);
            EXPECT_TRUE(test::Eventually([&] { return presents >= std::min(i + 1, row.presents); }));
        }
        EXPECT_EQ(codes, row.codes);
        // A size that no renderer has is lost alone.
        manager.PresentFrame(test::MakeFrame(CORVANE_STREAM_H264, {1}, true, 200, 60000, 60000), picture.frame, true);
        EXPECT_EQ(codes, row.codes);
    }
}

}    // namespace
}    // namespace corvane
