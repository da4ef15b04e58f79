// The log: through scripted log objects, through the log library of this package, and from the whole library.
#include "base/Log.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "entry/FakePlugin.h"
#include "entry/InChild.h"
#include "entry/Logger.h"
#include "manager/RendererSlot.h"
#include "support/Client.h"
#include "support/ScriptedRenderer.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane::test {
namespace {

const std::string kFakeLogger = FAKE_PLUGINS "/bare/DecoderIsolated_QuickSync.so";

// Renderers of these names, of which each is followed by the row's.
RendererScript script;
template <int kFollower>
RendererPtr MakeScripted(const PresentSettings&, Clock&) {
    static RendererScript follower;
    follower.traits.name = kFollower == 0 ? "DirectDraw" : "GDI";
    return std::make_shared<ScriptedRenderer>(follower);
}
const RendererMaker kMakers[] = {
    {"first", [](uint32_t) { return true; },
     [](const PresentSettings&, Clock&) -> RendererPtr { return std::make_shared<ScriptedRenderer>(script); }},
    {"DirectDraw", [](uint32_t) { return true; }, &MakeScripted<0>},
    {"GDI", [](uint32_t) { return true; }, &MakeScripted<1>}};

// A slot whose renderer fails once.
struct FailingSlot : RendererSlot {
    FailingSlot() : RendererSlot(this, PresentSettings(), kMakers, Clock::System()) {}
    void Fail() { EXPECT_TRUE(ReplaceFailed(Current(), PresentSettings())); }
};

// Records the calls on the log object.
struct Recorder {
    std::string text;
    uint32_t refuses = 0;
    bool throws = false;
    const RendererSlot* slot = nullptr;    // whose lock must be free

    std::string& Add(void* context, const std::string& more) {
        if (throws)
            throw std::runtime_error("log");
        return text += (context == this ? "" : "?") + more;
    }
};
Recorder recorder;

LogTraceObject Complete() {
    LogTraceObject object{};
    object.context = &recorder;
    object.registerModule = [](void* context, uint64_t kind, const char* name, uint32_t* id) {
        recorder.Add(context, std::to_string(kind) + name + std::to_string(*id));
        *id = 0x20304;
    };
    object.testLine = [](void* context, uint32_t level, uint64_t zero, const char* file, uint32_t line) {
        char text[80];
        std::snprintf(text, sizeof text, " %x %d %s %d", level, int(zero), file, line > 0);
        recorder.Add(context, text);
        if (recorder.slot != nullptr)
            (void)recorder.slot->Current();
        return recorder.refuses;
    };
    object.writeLine = [](void* context, const char* format, va_list arguments) {
        char text[200];
        std::vsnprintf(text, sizeof text, format, arguments);
        recorder.Add(context, std::string(" ") + text);
    };
    return object;
}

TEST(Log, FieldsOrderAndText) {
    const std::string registered = "19Corvane0", tested = " 2030403 0 src/RenderMgr 1", failed = " [*] ",
                      line = failed + "DirectDraw renderer failed, reset to GDI renderer";
    const struct {
        const char* name;
        std::function<void(LogTraceObject&)> change;
        std::string told;
        const char *failed = "DirectDraw", *next = "GDI";
        std::function<void(LogTraceObject&)> changeAfterStart{};
    } rows[] = {
        {"complete", [](auto&) {}, registered + tested + line},
        {"others", [](auto&) {}, registered + tested + failed + "Fisheye/OpenGL renderer failed, reset to GDI renderer",
         "Fisheye/OpenGL"},
        {"others", [](auto&) {},
         registered + tested + failed + "Fisheye/OpenGL renderer failed, reset to DirectDraw renderer",
         "Fisheye/OpenGL", "DirectDraw"},
        {"a pair without a line", [](auto&) {}, registered, "GDI", "DirectDraw"},
        {"no context", [](auto& o) { o.context = nullptr; }, "?" + registered},
        {"a context later", [](auto& o) { o.context = nullptr; }, "?" + registered + tested + line, "DirectDraw", "GDI",
         [](auto& o) { o.context = &recorder; }},
        {"no registration", [](auto& o) { o.registerModule = nullptr; }, " 3 0 src/RenderMgr 1" + line},
        {"no test", [](auto& o) { o.testLine = nullptr; }, registered},
        {"no writing", [](auto& o) { o.writeLine = nullptr; }, registered + tested},
        {"refused", [](auto&) { recorder.refuses = 1u << 31; }, registered + tested},
        {"throws", [](auto&) { recorder.throws = true; }, ""},
        {"throws later", [](auto&) {}, registered, "DirectDraw", "GDI", [](auto&) { recorder.throws = true; }},
        {"no object", {}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto run = [&] {
            LogTraceObject object = Complete();
            if (row.change)
                row.change(object);
            FakeHost host;
            host.onLog = [&] { return row.change ? &object : nullptr; };
            host.Announce();
            Logger::Start(kFakeLogger.c_str());
            if (row.changeAfterStart)
                row.changeAfterStart(object);
            script.traits.name = row.failed;
            script.traits.followsOnFailure = row.next;
            FailingSlot slot;
            recorder.slot = &slot;
            slot.Fail();
            char address[32];
            std::snprintf(address, sizeof address, "[%p]", static_cast<const void*>(&slot));
            const size_t at = recorder.text.find(address);
            return at == std::string::npos ? recorder.text : recorder.text.replace(at, std::strlen(address), "[*]");
        };
        EXPECT_EQ(InChild(run), row.told);
    }
    for (const char* const library : {"/no/library.so", CORVANE_EXPORTS, "libm.so.6"})
        EXPECT_EQ(InChild([&] {
                      Logger::Start(library);
                      return std::string(log::hook != nullptr ? "hook" : "");
                  }),
                  "");
}

// The lines in the file that PELLWICK_FILE named, of two processes with two threads each.
TEST(Log, TheLoggerOfThePackage) {
    const auto folder = std::filesystem::temp_directory_path() / ("corvane_log_" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    mkfifo((folder / "pipe").c_str(), 0600);
    const std::regex whole("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z 3 \\[0x[0-9a-f]+\\] a b x*");
    const struct {
        const char* file;    // in `folder`, which is the working directory when the library is loaded
        size_t text, lines;
        rlim_t most = RLIM_INFINITY;    // bytes of a file
    } rows[] = {{nullptr, 4, 0},     {"", 4, 0},     {"log", 4, 4000},  {"long", 2000, 4000},
                {"no/folder", 4, 0}, {"pipe", 4, 0}, {"full", 4, 0, 0}, {"/dev/full", 4, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file != nullptr ? row.file : "no variable");
        const auto run = [&] {
            const pid_t other = fork();    // two processes
            std::filesystem::current_path(folder);
            row.file != nullptr ? setenv("PELLWICK_FILE", row.file, 1) : unsetenv("PELLWICK_FILE");
            const rlimit limit{row.most, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &limit);
            Logger::Start(PELLWICK);
            std::filesystem::current_path("/");
            const std::string format = "[%p] a\nb " + std::string(row.text, 'x');
            const auto log = [&] {
                for (int i = 0; i < 1000; ++i)
                    log::Line(3, "src/Test", 1, format.c_str(), &format);
            };
            std::thread second(log);
            log();
            second.join();
            if (other == 0)
                _exit(HasFailure() ? 1 : 0);
            int status = -1;
            waitpid(other, &status, 0);
            return std::to_string(status);
        };
        EXPECT_EQ(InChild(run), "0");
        size_t lines = 0;
        const auto path = folder / (row.file == nullptr ? "" : row.file);
        if (std::ifstream stream; std::filesystem::is_regular_file(path) && (stream.open(path), stream))
            for (std::string line; std::getline(stream, line); ++lines)
                ASSERT_TRUE(line.size() <= 1023 && std::regex_match(line, whole)) << line;
        EXPECT_EQ(lines, row.lines);
    }
    std::filesystem::remove_all(folder);
}

#define CALL(name, ...) call(&name, #name, __VA_ARGS__)
#if !defined(CORVANE_SANITIZED)    // the sanitizers want one copy of each variable
// The shared library in a process of its own, which loads it by dlopen: it finds its logger beside it. Its X server
// dies.
TEST(Log, ALostServerUnderTheDefaultRendererIsOneLine) {
    const auto file = std::filesystem::temp_directory_path() / ("corvane_line_" + std::to_string(getpid()));
    XServer server;
    XClient client(server.Display());
    const uintptr_t window = client.Create();
    const std::vector<uint8_t> jpeg = OneJpeg();
    EXPECT_EQ(InChild([&] {
                  setenv("PELLWICK_FILE", file.c_str(), 1);
                  void* const library = dlopen(CORVANE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
                  const auto call = [&]<typename Export>(Export*, const char* name, auto... arguments) {
                      EXPECT_EQ(reinterpret_cast<Export*>(dlsym(library, name))(arguments...), Status_Ok) << name;
                  };
                  static std::atomic<int> shown{0}, replaced{0};
                  const ChannelSettings settings{
                      .mask = CORVANE_SETTINGS_STREAM_INFO,
                      .streamInfo = [](void*, uint32_t code, uint64_t,
                                       uint64_t) { replaced += code == CORVANE_INFO_FALLBACK; },
                      .window = window};
                  const CorvaneAfterDisplayCallback onShown = [](void*, const AfterDisplayRecord*) { ++shown; };
                  void *instance = nullptr, *channel = nullptr, *const none = nullptr;
                  CALL(Corvane_Initial, &instance, CorvaneStreamInfoCallback{}, CorvaneOsdCallback{}, uintptr_t{0}, 0u,
                       0u, CORVANE_VERSION, 0u);
                  CALL(Corvane_CreateChannel, instance, &channel, &settings);
                  CALL(Corvane_RegisterAfterDisplayCallback, channel, onShown, none);
                  CALL(Corvane_StartChannel, channel, 0u);
                  int64_t time = 0;
                  const auto feedUntil = [&](std::atomic<int>& count) {
                      EXPECT_TRUE(Eventually([&] {
                          const MediaFrameHeader header = VideoHeader(kJpeg, jpeg, true, time += 40);
                          CALL(Corvane_InputEncodedMediaFrame, channel, &header);
                          std::this_thread::sleep_for(std::chrono::milliseconds(10));
                          return count > 0;
                      }));
                  };
                  feedUntil(shown);
                  server.Kill();
                  feedUntil(replaced);
                  shown = 0;
                  feedUntil(shown);
                  CALL(Corvane_Release, &instance);
                  return std::string();
              }),
              "");
    std::ifstream stream(file);
    std::string line, more;
    std::getline(stream, line);
    EXPECT_TRUE(
        std::regex_search(line, std::regex("Z 3 \\[0x[0-9a-f]+\\] DirectDraw renderer failed, reset to GDI renderer$")))
        << line;
    EXPECT_FALSE(std::getline(stream, more)) << more;
    std::filesystem::remove(file);
}
#endif

}    // namespace
}    // namespace corvane::test
