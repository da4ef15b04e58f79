#include "Options.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string_view>
#include <utility>

#include "corvane/corvane.h"

namespace {

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
    } formats[] = {{"bgra", CORVANE_PICTURE_BGRA32, false},
                   {"bgr", CORVANE_PICTURE_BGR24, false},
                   {"i420", CORVANE_PICTURE_I420, false},
                   {"bgra-flip", CORVANE_PICTURE_BGRA32, true},
                   {"bgr-flip", CORVANE_PICTURE_BGR24, true}};
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
    } renderers[] = {{"default", 0},
                     {"plain", CORVANE_FLAG_GDI},
                     {"gdi", CORVANE_FLAG_GDI},
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

bool Still(std::string_view text, Options& options) {
    static constexpr std::pair<std::string_view, StillFormat> formats[] = {
        {"png", StillFormat::Png}, {"jpeg", StillFormat::Jpeg}, {"bmp", StillFormat::Bmp}, {"raw", StillFormat::Raw}};
    for (const auto& [name, format] : formats) {
        if (name != text)
            continue;
        options.stillFormat = format;
        return true;
    }
    return false;
}

// The first of two words.
bool RawFormat(std::string_view text, Options& options) {
    // At the place of each CORVANE_PICTURE_*.
    static constexpr std::string_view names[] = {
        "",           "yuy2", "rgb565", "bgr", "bgra", "rgb565-bmp", "bmp",  "bgra-bmp", "jpeg", "rgb555",
        "rgb555-bmp", "i420", "bgr565", "rgb", "rgba", "bgr555",     "yv12", "uyvy",     "nv12"};
    for (uint32_t format = 1; format < std::size(names); ++format)
        if (names[format] == text)
            options.rawFormat = format;
    return options.rawFormat != 0;
}

// The number of one of these words.
bool Choice(std::string_view text, std::initializer_list<std::pair<std::string_view, uint32_t>> words, uint32_t& out) {
    for (const auto& [word, number] : words) {
        if (word == text) {
            out = number;
            return true;
        }
    }
    return false;
}

// Decimal, or hexadecimal after 0x, as the tools of X11 print window ids.
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

bool Colours(std::string_view text, Options& options) {
    options.colours = text == "plain" ? CORVANE_COLOURS_PLAIN : CORVANE_COLOURS_SIGNALLED;
    return text == "plain" || text == "signalled";
}

// FILE@SECONDS: a file name that ends in @ and a number has a time.
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

// Whether `word` asks for a text, after which the program ends. Prints it.
bool PrintsText(std::string_view word) {
    if (word == "--help" || word == "-h") {
        std::fputs(kHelp, stdout);
        return true;
    }
    if (word != "--version")
        return false;
    uint8_t version[4] = {};
    Corvane_GetVersionInfo(&version[0], &version[1], &version[2], &version[3]);
    std::printf("corvane-play, libcorvane %d.%d.%d.%d\n", version[0], version[1], version[2], version[3]);
    return true;
}

// The exit code for options that do not go together, else 0.
int CheckTogether(const Options& options) {
    if (options.input.empty())
        return Mistake("name a file or a URL", "");
    if (options.headless && (options.window != 0 || options.wall > 1 || !options.screenshot.empty()))
        return Mistake("there is no window to show or to save with", "--headless");
    if (options.decodeOnly &&
        (options.channels > 1 || options.bottomUp || options.rotate != 0 || options.snapshotEvery > 0 || options.info))
        return Mistake("there is one channel, which does not present: not with all options goes", "--decode-only");
    if (options.compression != 0 && options.recordFile.empty())
        return Mistake("name the file with --record, not only", "--compress");
    if (!options.headless &&
        (!options.contactSheet.empty() || options.kind != CORVANE_PICTURE_BGRA32 || options.bottomUp))
        return Mistake("contact sheet and format are for pictures in memory: add", "--headless");
    return 0;
}

}    // namespace

bool ParseOptions(int argc, char** argv, Options& options, int& exitCode) {
    const struct {
        std::string_view name;
        std::function<bool(std::string_view)> take;    // called for each word that belongs to the option
        int words = 1;
    } valued[] = {
        {"--contact-sheet", [&](auto text) { return !(options.contactSheet = text).empty(); }},
        {"--stats", [&](auto text) { return !(options.statsFile = text).empty(); }},
        {"--format", [&](auto text) { return Format(text, options); }},
        {"--size", [&](auto text) { return Size(text, options); }},
        {"--window", [&](auto text) { return WindowId(text, options); }},
        {"--renderer", [&](auto text) { return Renderer(text, options); }},
        {"--background", [&](auto text) { return Background(text, options); }},
        {"--colours", [&](auto text) { return Colours(text, options); }},
        {"--logo", [&](auto text) { return !(options.logo = text).empty(); }},
        {"--raw",
         [&](auto text) {
             return options.rawFormat == 0 ? RawFormat(text, options) : !(options.rawFile = text).empty();
         },
         2},
        {"--raw-sound", [&](auto text) { return !(options.rawSoundFile = text).empty(); }},
        {"--record", [&](auto text) { return !(options.recordFile = text).empty(); }},
        {"--compress",
         [&](auto text) {
             return Choice(
                 text, {{"jpeg", CORVANE_STREAM_JPEG}, {"mpeg4", CORVANE_STREAM_MPEG4}, {"h264", CORVANE_STREAM_H264}},
                 options.compression);
         }},
        {"--plugins", [&](auto text) { return !(options.plugins = text).empty(); }},
        {"--decoder",
         [&](auto text) {
             return Choice(text, {{"software", 0}, {"cuvid", 1}, {"dxva2", 2}, {"quicksync", 3}}, options.decoder);
         }},
        {"--volume", [&](auto text) { return Number(text, options.volume, 0u, 100u); }},
        {"--screenshot", [&](auto text) { return Screenshot(text, options); }},
        {"--still-format", [&](auto text) { return Still(text, options); }},
        {"--snapshot-every", [&](auto text) { return Number(text, options.snapshotEvery, 0.001, 1e9); }},
        {"--wall", [&](auto text) { return Number(text, options.wall, 1u, 64u); }},
        {"--rotate", [&](auto text) { return Number(text, options.rotate, -36000.0, 36000.0); }},
        {"--buffer", [&](auto text) { return Number(text, options.bufferMs, 0u, 600000u); }},
        {"--threads", [&](auto text) { return Number(text, options.threads, 0u, 32u); }},
        {"--mode",
         [&](auto text) {
             return Number(text, options.displayMode, uint32_t{CORVANE_DISPLAY_ALL},
                           uint32_t{CORVANE_DISPLAY_THIN_MOST});
         }},
        {"--channels", [&](auto text) { return Number(text, options.channels, 1u, 256u); }},
        {"--loop", [&](auto text) { return Number(text, options.loops, 1u, 1000000u); }},
        {"--seconds", [&](auto text) { return Number(text, options.seconds, 0.0, 1e9); }},
    };
    exitCode = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (PrintsText(word))
            return false;
        if (word == "--headless") {
            options.headless = true;
        } else if (word == "--decode-only") {
            options.headless = options.decodeOnly = true;
        } else if (word == "--quiet") {
            options.quiet = true;
        } else if (word == "--mute") {
            options.mute = true;
        } else if (word == "--fill") {
            options.fill = true;
        } else if (word == "--info") {
            options.info = true;
        } else if (word.size() > 1 && word.front() == '-') {
            const auto* option = std::begin(valued);
            while (option != std::end(valued) && option->name != word)
                ++option;
            if (option == std::end(valued))
                exitCode = Mistake("unknown option", word);
            else
                for (int left = option->words; left > 0 && exitCode == 0; --left)
                    if (++i >= argc || !option->take(argv[i]))
                        exitCode = Mistake("no good value for", word);
        } else if (options.input.empty()) {
            options.input = word;
        } else {
            exitCode = Mistake("one stream at a time, not also", word);
        }
        if (exitCode != 0)
            return false;
    }
    exitCode = CheckTogether(options);
    return exitCode == 0;
}

void SetDecoders(void* channel, const Options& options) {
    for (const int32_t option :
         {CORVANE_OPTION_H264_DECODER, CORVANE_OPTION_MPEG4_DECODER, CORVANE_OPTION_H265_DECODER})
        Corvane_SetChannelOption(channel, option, options.decoder, 0);
}
