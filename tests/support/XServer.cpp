#include "support/XServer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "support/Latch.h"

namespace corvane::test {

XServer::XServer(const Options& options) {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    if (const char* before = getenv("DISPLAY"))
        m_displayBefore = before;
    Start(options);
    setenv("XAUTHORITY", "/dev/null", 0);    // else libXau makes its name up in one buffer for all connecting threads
    setenv("DISPLAY", m_display.c_str(), 1);
}

XServer::~XServer() {
    if (m_process > 0) {    // the server cleans up when it is asked to end
        kill(m_process, SIGCONT);
        // Again and again: a signal between the server's look at its flags and its wait for clients is forgotten.
        if (Eventually([this] {
                kill(m_process, SIGTERM);
                return waitpid(m_process, nullptr, WNOHANG) == m_process;
            }))
            m_process = -1;
    }
    Kill();
    if (m_displayBefore)
        setenv("DISPLAY", m_displayBefore->c_str(), 1);
    else
        unsetenv("DISPLAY");
}

void XServer::Start(const Options& options) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    const std::string screen =
        std::to_string(options.width) + "x" + std::to_string(options.height) + "x" + std::to_string(options.depth);
    const std::string number = std::to_string(ends[1]);
    std::vector<const char*> arguments{"Xvfb",         "-displayfd", number.c_str(), "-screen", "0",
                                       screen.c_str(), "-nolisten",  "tcp",          "-noreset"};
    for (const std::string& argument : options.arguments)
        arguments.push_back(argument.c_str());
    arguments.push_back(nullptr);
    m_process = fork();
    if (m_process == 0) {    // only calls that are safe between fork and exec
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        fcntl(ends[1], F_SETFD, 0);
        const int nowhere = open("/dev/null", O_RDWR);
        for (int i = 0; i < 3; ++i)
            dup2(nowhere, i);
        execvp("Xvfb", const_cast<char* const*>(arguments.data()));
        _exit(127);
    }
    close(ends[1]);
    std::string told;
    char byte;
    while (m_process > 0 && read(ends[0], &byte, 1) == 1 && byte != '\n')
        told += byte;
    close(ends[0]);
    if (told.empty())
        Kill();
    m_display = ":" + told;
}

void XServer::Kill() {
    if (m_process <= 0)
        return;
    // Its lock and socket stay behind for the next server to take over. They are not ours to remove: another server may
    // have taken the number meanwhile.
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
    m_process = -1;
}

void XServer::Stop() {
    kill(m_process, SIGSTOP);
    waitpid(m_process, nullptr, WUNTRACED);
}

void XServer::Continue() {
    kill(m_process, SIGCONT);
}

}    // namespace corvane::test
