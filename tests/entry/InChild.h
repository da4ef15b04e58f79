// Processes that a test runs: a part of it in one of its own, where what it loads, sets or breaks is gone at the end,
// and commands.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "support/Testing.h"

namespace corvane::test {

// What `body` returned in a process of its own; "crashed" where it did not return.
inline std::string InChild(const std::function<std::string()>& body) {
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    const bool failed = testing::Test::HasFailure();
    const pid_t child = fork();
    if (child == 0) {
        alarm(120);    // a hang
        const std::string text = body();
        const bool written = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(written && (failed || !testing::Test::HasFailure()) ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char bytes[4096];
    for (ssize_t got; (got = read(ends[0], bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<size_t>(got));
    close(ends[0]);
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0 ? text : text + " crashed";
}

// What a command writes; "failed" where its status is not 0.
inline std::string OutputOf(const std::string& command) {
    std::string text;
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    char part[4096];
    for (size_t size; pipe != nullptr && (size = fread(part, 1, sizeof part, pipe)) > 0;)
        text.append(part, size);
    return pipe != nullptr && pclose(pipe) == 0 ? text : "failed: " + command + "\n" + text;
}

}    // namespace corvane::test
