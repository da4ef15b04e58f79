// The log library of this package: appends the lines of libcorvane to the file that the environment variable
// PELLWICK_FILE names when the library is loaded. Without that variable it refuses all lines and touches no file.
//
//     2026-11-26T17:31:09.482Z 3 [0x55d0c8a3f2c0] DirectDraw renderer failed, reset to GDI renderer
//
// Each line is one write at the end of the file, so that several processes may share it. The file is opened for each
// line: lines are rare, the host keeps no descriptor, and the file may be moved away or removed meanwhile.
#include "corvane/pellwick.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr size_t kLongestLine = 1024;    // bytes, with the time and the end; what is longer is cut
constexpr uint32_t kWanted = 0;
constexpr uint32_t kRefused = 1;

char path[PATH_MAX];                // from "/"; empty: no line is wanted. Constant once the object is handed out.
uint32_t modules = 0;               // atomic
thread_local uint32_t level = 0;    // of the line that this thread asked for last; writeLine does not get it

// An absolute path, so that the host may change its working directory. Left empty where it is too long.
void ReadPath() {
    const char* const name = secure_getenv("PELLWICK_FILE");
    if (name == nullptr || name[0] == '\0')
        return;
    char folder[PATH_MAX] = "";
    if (name[0] != '/' && (getcwd(folder, sizeof folder - 1) == nullptr || folder[0] != '/'))
        return;
    if (name[0] != '/')
        std::strcat(folder, "/");
    const size_t length = std::strlen(folder) + std::strlen(name);
    if (length < sizeof path) {
        std::strcpy(path, folder);
        std::strcat(path, name);
    }
}

// Keeps the signals of a failed write from the host: of a pipe without a reader, and of the limit of a file's size.
class WithoutSignals {
public:
    WithoutSignals() {
        sigset_t pending;
        sigemptyset(&m_ours);
        sigpending(&pending);
        for (const int signal : {SIGPIPE, SIGXFSZ})
            if (sigismember(&pending, signal) == 0)
                sigaddset(&m_ours, signal);
        pthread_sigmask(SIG_BLOCK, &m_ours, &m_before);
    }
    ~WithoutSignals() {
        constexpr timespec now{};
        while (sigtimedwait(&m_ours, nullptr, &now) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    WithoutSignals(const WithoutSignals&) = delete;
    WithoutSignals& operator=(const WithoutSignals&) = delete;

private:
    sigset_t m_ours;
    sigset_t m_before;
};

void Append(const char* line, size_t bytes) {
    const int errorBefore = errno;
    // A pipe that nobody reads, or that is full, does not block.
    const int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                          S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
    if (file >= 0) {
        const WithoutSignals scope;
        while (write(file, line, bytes) < 0 && errno == EINTR) {    // on a full disk the line is lost
        }
        close(file);
    }
    errno = errorBefore;
}

void RegisterModule(void*, uint64_t, const char*, uint32_t* moduleId) {
    *moduleId = __atomic_add_fetch(&modules, 1, __ATOMIC_RELAXED);
}

uint32_t TestLine(void*, uint32_t moduleAndLevel, uint64_t, const char*, uint32_t) {
    level = moduleAndLevel & 0xFF;
    return path[0] != '\0' ? kWanted : kRefused;
}

void WriteLine(void*, const char* format, va_list arguments) {
    if (path[0] == '\0')
        return;
    timespec now{};
    tm utc{};
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &utc);
    char line[kLongestLine];
    const int head = std::snprintf(line, sizeof line, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ %u ", utc.tm_year + 1900,
                                   utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                                   static_cast<int>(now.tv_nsec / 1'000'000), level);
    const int text = std::vsnprintf(line + head, sizeof line - static_cast<size_t>(head), format, arguments);
    if (text < 0)
        return;
    char* const end = line + std::min(static_cast<size_t>(head + text), sizeof line - 1);
    std::replace_if(
        line, end, [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    *end = '\n';
    Append(line, static_cast<size_t>(end - line) + 1);
}

LogTraceObject object{
    .reserved0 = {},
    .context = &object,
    .reserved32 = {},
    .registerModule = &RegisterModule,
    .reserved80 = {},
    .testLine = &TestLine,
    .writeLine = &WriteLine,
};

}    // namespace

extern "C" CORVANE_API LogTraceGetGlobalObject LogTrace_GetGlobalObject;

void LogTrace_GetGlobalObject(uint64_t, LogTraceObject** found) {
    if (path[0] == '\0')
        ReadPath();
    *found = &object;
}
