// Memory and descriptors of this process as the system counts them.
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

namespace corvane::test {

// Of /proc/self/fd: descriptors; of /proc/self/task: threads.
inline size_t Entries(const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// Bytes of the mappings whose line has `word` in it: all of them, or those in memory.
inline size_t MappedBytes(const char* word, bool resident) {
    std::ifstream maps("/proc/self/smaps");
    size_t bytes = 0;
    bool ours = false;
    for (std::string line; std::getline(maps, line);) {
        const size_t colon = line.find(": ");
        if (line.find('-') < line.find(' '))
            ours = line.find(word) != std::string::npos;
        else if (ours && line.starts_with(resident ? "Rss:" : "Size:"))
            bytes += std::stoul(line.substr(colon + 1)) * 1024;
    }
    return bytes;
}

}    // namespace corvane::test
