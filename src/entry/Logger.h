// Sends the log lines of the library to the optional log library: see corvane/pellwick.h.
#pragma once

namespace corvane {

class Logger {
public:
    // Loads `library` for good, registers there, and sets the hook of base/Log.h. Without it nothing changes. Once,
    // before any line is logged.
    static void Start(const char* library) noexcept;
};

}    // namespace corvane
