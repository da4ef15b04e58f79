#include "entry/Logger.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "base/Log.h"
#include "corvane/pellwick.h"
#include "platform/Library.h"

namespace corvane {

static_assert(sizeof(LogTraceObject) == 128 && offsetof(LogTraceObject, context) == 24 &&
              offsetof(LogTraceObject, registerModule) == 72 && offsetof(LogTraceObject, testLine) == 112 &&
              offsetof(LogTraceObject, writeLine) == 120);

namespace {

constexpr uint64_t kModuleKind = 19;

// Set before the hook.
const LogTraceObject* logObject = nullptr;
uint32_t moduleId = 0;

// Makes the argument list of a line.
void Write(const LogTraceObject& log, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log.writeLine(log.context, format, arguments);
    va_end(arguments);
}

void Line(int level, const char* file, int line, const char* format, const void* object) {
    const LogTraceObject& log = *logObject;
    if (log.context == nullptr || log.testLine == nullptr)
        return;
    try {
        const uint32_t moduleAndLevel = moduleId << 8 | static_cast<uint32_t>(level);
        if (log.testLine(log.context, moduleAndLevel, 0, file, static_cast<uint32_t>(line)) == 0 &&
            log.writeLine != nullptr)
            Write(log, format, object);
    } catch (...) {    // a logger that throws loses the line
    }
}

}    // namespace

void Logger::Start(const char* library) noexcept {
    Library pellwick;
    if (!pellwick.Open(library))
        return;
    auto* const find = pellwick.Find<LogTraceGetGlobalObject>("LogTrace_GetGlobalObject");
    pellwick.Keep();
    LogTraceObject* found = nullptr;
    try {
        if (find != nullptr)
            find(0, &found);
        if (found != nullptr && found->registerModule != nullptr)
            found->registerModule(found->context, kModuleKind, "Corvane", &moduleId);
    } catch (...) {
        return;
    }
    logObject = found;
    if (found != nullptr)
        log::hook.store(&Line, std::memory_order_release);
}

}    // namespace corvane
