// A part of a test in a process of its own: what it loads, sets or breaks is gone after it.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

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

}    // namespace corvane::test
