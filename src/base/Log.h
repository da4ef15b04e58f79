// Log lines go to the hook of the process, if one is set. Without it a log call costs one load.
#pragma once

#include <atomic>

namespace corvane::log {

// `file` names the place in the code as logs know it, without an ending; `format` has exactly one %p, for `object`. Any
// thread, with no lock of the library held: the logger is somebody else's.
using Hook = void (*)(int level, const char* file, int line, const char* format, const void* object);

inline std::atomic<Hook> hook{nullptr};

inline void Line(int level, const char* file, int line, const char* format, const void* object) {
    if (const Hook now = hook.load(std::memory_order_acquire))
        now(level, file, line, format, object);
}

}    // namespace corvane::log
