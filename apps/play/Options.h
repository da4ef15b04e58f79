// The command line of corvane-play.
#pragma once

#include <cstdint>
#include <string>

#include "Stills.h"
#include "corvane/corvane.h"

struct Options {
    std::string input;           // file or URL
    std::string statsFile;       // JSON, empty: none
    std::string contactSheet;    // PNG, empty: none
    std::string screenshot;      // PNG, empty: none but by key
    std::string logo;            // picture file, empty: none
    uint32_t kind = 4;           // picture kind of the callback: 3 24 bits, 4 32 bits, 11 planar
    bool bottomUp = false;
    uint32_t width = 0;    // of the window, or the most of a picture in memory; 0 as the stream
    uint32_t height = 0;
    uint32_t window = 0;        // somebody else's, 0 our own
    uint32_t flags = 0;         // CORVANE_FLAG_* of the instance
    uint32_t background = 0;    // 0x00BBGGRR
    uint32_t colours = CORVANE_COLOURS_SIGNALLED;
    double screenshotSeconds = -1;    // time of the stream, below 0 the end
    uint32_t bufferMs = 0;            // 0: the library's default
    uint32_t threads = 0;
    uint32_t displayMode = 0;
    uint32_t channels = 1;
    uint32_t wall = 1;    // channels in the window
    StillFormat stillFormat = StillFormat::Png;
    double snapshotEvery = 0;    // seconds of the stream, 0 never
    uint32_t loops = 1;
    double seconds = 0;    // end after this much of the stream, 0 all of it
    double rotate = 0;     // degrees, 0 none
    bool headless = false;
    bool fill = false;    // the window, whatever the picture's proportions
    bool quiet = false;
};

// False when the program is to end with `exitCode` (help was printed, or a mistake was told).
bool ParseOptions(int argc, char** argv, Options& options, int& exitCode);

extern const char kHelp[];
