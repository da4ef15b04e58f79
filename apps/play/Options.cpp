#include "Options.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string_view>

#include "corvane/corvane.h"

namespace {

constexpr char kHelp[] =
    R"(corvane-play: plays a video stream through libcorvane.

usage: corvane-play [options] FILE|URL

  --size WxH              of the window; with --headless the largest picture
  --window ID             play in that X11 window instead of a new one
  --renderer NAME         gdi, compose or stretch instead of the default
  --background RRGGBB     colour of margins and of the empty window
  --logo FILE             PNG or BMP that the window shows until the first picture
  --screenshot FILE[@S]   write the window as PNG after S seconds of stream, else at the end

  --headless              no window: pictures go to memory
  --contact-sheet FILE    write a PNG of pictures spread over the stream (with --headless)
  --format NAME           picture format: bgra (default), bgr, i420, bgra-flip, bgr-flip (with --headless)

  --rotate DEGREES        rotate every picture (formats bgr, bgr-flip, i420)
  --buffer MS             jitter buffer of the channel
  --threads N             decoding threads, 0 automatic
  --mode N                frames decoded: 0 all, 1 key frames, 2 to 8 thinned
  --channels N            the same stream on N channels at once, 1 to 256; the first has the window
  --loop N                play N times
  --seconds S             end after S seconds of stream
  --stats FILE            write what was measured as JSON
  --quiet                 no status line
  --help

Keys: space pause, s screenshot (the name of --screenshot, else corvane-NNN.png), f full screen, m margins with text,
z zoom into the middle, o overview in a corner, q or Escape quit.

The status line shows stream time, pictures a second, frames and bytes that wait, pictures shown and lost, the age of the
shown picture since its frame was fed, and processor use. Ctrl-C ends the program with what was measured so far.
)";

template <typename T>
bool Number(std::string_view text, T& out, T low, T high) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc{} && end == text.data() + text.size() && out >= low && out <= high;
}

bool Hexadecimal(std::string_view text, uint32_t& out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out, 16);
    return error == std::errc{} && end == text.data() + text.size();
}

bool Size(std::string_view text, Options& options) {
    const size_t cross = text.find('x');
    return cross != std::string_view::npos && Number(text.substr(0, cross), options.width, 2u, 16384u) &&
           Number(text.substr(cross + 1), options.height, 2u, 16384u);
}

bool Format(std::string_view text, Options& options) {
    static constexpr struct {
        std::string_view name;
        uint32_t kind;
        bool bottomUp;
    } formats[] = {
        {"bgra", 4, false}, {"bgr", 3, false}, {"i420", 11, false}, {"bgra-flip", 4, true}, {"bgr-flip", 3, true}};
    for (const auto& format : formats) {
        if (format.name != text)
            continue;
        options.kind = format.kind;
        options.bottomUp = format.bottomUp;
        return true;
    }
    return false;
}

bool Renderer(std::string_view text, Options& options) {
    static constexpr struct {
        std::string_view name;
        uint32_t flags;
    } renderers[] = {{"gdi", CORVANE_FLAG_GDI},
                     {"compose", CORVANE_FLAG_GDI | CORVANE_FLAG_GDI_COMPOSE},
                     {"stretch", CORVANE_FLAG_GDI_STRETCH}};
    for (const auto& renderer : renderers) {
        if (renderer.name != text)
            continue;
        options.flags = renderer.flags;
        return true;
    }
    return false;
}

// Decimal, or hexadecimal behind 0x, as the tools of X11 print it.
bool WindowId(std::string_view text, Options& options) {
    if (!text.starts_with("0x"))
        return Number(text, options.window, 1u, UINT32_MAX);
    text.remove_prefix(2);
    return Hexadecimal(text, options.window) && options.window != 0;
}

bool Background(std::string_view text, Options& options) {
    uint32_t rgb = 0;
    if (text.size() != 6 || !Hexadecimal(text, rgb))
        return false;
    options.background = rgb >> 16 | (rgb & 0xFF00) | (rgb & 0xFF) << 16;
    return true;
}

// A name that ends in @ and a number has a time.
bool Screenshot(std::string_view text, Options& options) {
    const size_t at = text.rfind('@');
    const bool timed = at != std::string_view::npos && Number(text.substr(at + 1), options.screenshotSeconds, 0.0, 1e9);
    options.screenshot = timed ? text.substr(0, at) : text;
    return !options.screenshot.empty();
}

int Mistake(std::string_view what, std::string_view where) {
    std::fprintf(stderr, "corvane-play: %.*s %.*s (--help shows the options)\n", static_cast<int>(what.size()),
                 what.data(), static_cast<int>(where.size()), where.data());
    return 2;
}

}    // namespace

bool ParseOptions(int argc, char** argv, Options& options, int& exitCode) {
    const struct {
        std::string_view name;
        std::function<bool(std::string_view)> take;
    } valued[] = {
        {"--contact-sheet", [&](auto text) { return !(options.contactSheet = text).empty(); }},
        {"--stats", [&](auto text) { return !(options.statsFile = text).empty(); }},
        {"--format", [&](auto text) { return Format(text, options); }},
        {"--size", [&](auto text) { return Size(text, options); }},
        {"--window", [&](auto text) { return WindowId(text, options); }},
        {"--renderer", [&](auto text) { return Renderer(text, options); }},
        {"--background", [&](auto text) { return Background(text, options); }},
        {"--logo", [&](auto text) { return !(options.logo = text).empty(); }},
        {"--screenshot", [&](auto text) { return Screenshot(text, options); }},
        {"--rotate", [&](auto text) { return Number(text, options.rotate, -36000.0, 36000.0); }},
        {"--buffer", [&](auto text) { return Number(text, options.bufferMs, 0u, 600000u); }},
        {"--threads", [&](auto text) { return Number(text, options.threads, 0u, 32u); }},
        {"--mode", [&](auto text) { return Number(text, options.displayMode, 0u, 8u); }},
        {"--channels", [&](auto text) { return Number(text, options.channels, 1u, 256u); }},
        {"--loop", [&](auto text) { return Number(text, options.loops, 1u, 1000000u); }},
        {"--seconds", [&](auto text) { return Number(text, options.seconds, 0.0, 1e9); }},
    };
    exitCode = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--help") {
            std::fputs(kHelp, stdout);
            return false;
        }
        if (word == "--headless") {
            options.headless = true;
        } else if (word == "--quiet") {
            options.quiet = true;
        } else if (word.starts_with("--")) {
            const auto* option = std::begin(valued);
            while (option != std::end(valued) && option->name != word)
                ++option;
            if (option == std::end(valued))
                exitCode = Mistake("unknown option", word);
            else if (++i >= argc || !option->take(argv[i]))
                exitCode = Mistake("no good value for", word);
        } else if (options.input.empty()) {
            options.input = word;
        } else {
            exitCode = Mistake("one stream at a time, not also", word);
        }
        if (exitCode != 0)
            return false;
    }
    if (options.input.empty())
        exitCode = Mistake("name a file or a URL", "");
    else if (options.headless && (options.window != 0 || !options.screenshot.empty()))
        exitCode = Mistake("there is no window to show or to save with", "--headless");
    else if (!options.headless && (!options.contactSheet.empty() || options.kind != 4 || options.bottomUp))
        exitCode = Mistake("contact sheet and format are for pictures in memory: add", "--headless");
    return exitCode == 0;
}
