// The command line of corvane-play.
#pragma once

#include <cstdint>
#include <string>

#include "Stills.h"
#include "corvane/corvane.h"

struct Options {
    std::string input;                         // file or URL
    std::string statsFile;                     // JSON, empty: none
    std::string contactSheet;                  // PNG, empty: none
    std::string screenshot;                    // PNG, empty: none but by key
    std::string rawFile;                       // pictures as the raw callback gets them, empty: none
    std::string rawSoundFile;                  // WAV, empty: none
    std::string recordFile;                    // AVI, empty: none
    std::string plugins;                       // folder of decoder plug-ins, empty: none
    std::string logo;                          // picture file, empty: none
    uint32_t kind = CORVANE_PICTURE_BGRA32;    // of the picture callback
    bool bottomUp = false;
    uint32_t rawFormat = 0;      // CORVANE_PICTURE_* of rawFile
    uint32_t compression = 0;    // CORVANE_STREAM_* that recorded pictures are compressed to; 0: as they are
    uint32_t decoder = 0;        // hardware kind of options 46, 52 and 53
    uint32_t width = 0;          // of the window, or the cap on pictures in memory; 0: as the stream
    uint32_t height = 0;
    uint32_t window = 0;        // id of a window of another program; 0: the player makes one
    uint32_t flags = 0;         // CORVANE_FLAG_* of the instance
    uint32_t background = 0;    // 0x00BBGGRR
    uint32_t colours = CORVANE_COLOURS_SIGNALLED;
    double screenshotSeconds = -1;    // time of the stream; below 0: at the end
    uint32_t bufferMs = 0;            // 0: the library's default
    uint32_t threads = 0;
    uint32_t displayMode = CORVANE_DISPLAY_ALL;
    uint32_t channels = 1;
    uint32_t wall = 1;    // number of channels in the window
    StillFormat stillFormat = StillFormat::Png;
    double snapshotEvery = 0;    // seconds of the stream; 0: never
    uint32_t loops = 1;
    double seconds = 0;    // the player ends after this much of the stream; 0: at its end
    double rotate = 0;     // degrees, 0 none
    bool headless = false;
    bool decodeOnly = false;    // no channel that presents
    bool fill = false;          // pictures fill the window and lose their proportions
    bool quiet = false;
    bool mute = false;
    uint32_t volume = 100;    // percent
    bool info = false;        // the codes of the stream-info callback are printed
};

// False: the program ends with `exitCode`, after it printed the help or reported a mistake.
bool ParseOptions(int argc, char** argv, Options& options, int& exitCode);

// Sets which decoders the channel asks for.
void SetDecoders(void* channel, const Options& options);

extern const char kHelp[];
