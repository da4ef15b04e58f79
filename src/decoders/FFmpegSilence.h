// Keeps our FFmpeg objects from printing without a change of the process-wide log level.
#pragma once

namespace corvane {

// Added to the level of a message. FFmpeg reads the low byte of the sum, so that every level from 8 (fatal) to 56
// (trace) must land between 57 and 255 to be beyond any level that a host can ask for.
inline constexpr int kLogSilence = 128;

}    // namespace corvane
