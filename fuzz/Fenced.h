// Memory between two pages that cannot be accessed: a client's buffer lies exactly at one of its ends.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

class Fenced {
public:
    explicit Fenced(size_t bytes) : m_bytes((bytes + kPage - 1) / kPage * kPage) {
        void* const pages = mmap(nullptr, m_bytes + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED)
            std::abort();
        m_start = static_cast<uint8_t*>(pages) + kPage;
        if (mprotect(m_start, m_bytes, PROT_READ | PROT_WRITE) != 0)
            std::abort();
    }
    // A place for `size` bytes, which may be 0, at the end or the start.
    uint8_t* At(size_t size, bool atEnd) const {
        if (size > m_bytes)
            std::abort();
        return atEnd ? m_start + (m_bytes - size) : m_start;
    }

private:
    static constexpr size_t kPage = 4096;
    const size_t m_bytes;
    uint8_t* m_start;
};
