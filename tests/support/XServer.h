// A private X server (Xvfb) for a test.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace corvane::test {

// One thread, before the library connects. While it lives DISPLAY names it; what DISPLAY was comes back after. SIGPIPE
// stays blocked on the thread that made it: the library's threads block it too, and the test plays one of them when a
// server dies.
class XServer {
public:
    struct Options {
        int width = 640;
        int height = 480;
        int depth = 24;                          // of the root window: 8, 16, 24, 30
        std::vector<std::string> arguments{};    // further ones, as {"-extension", "MIT-SHM"}
    };
    XServer() : XServer(Options()) {}
    explicit XServer(const Options& options);
    ~XServer();    // ends the server in whatever state it is
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    // False where no server could be started; a client then says so.
    bool Running() const { return m_process > 0; }
    const std::string& Display() const { return m_display; }    // ":n"

    void Kill();    // and waits for its end
    void Stop();    // it answers nothing from here to Continue
    void Continue();

private:
    void Start(const Options& options);

    pid_t m_process = -1;
    std::string m_display;
    std::optional<std::string> m_displayBefore;
};

}    // namespace corvane::test
