// Bytes that end right in front of a page that cannot be touched: any read behind them ends the test.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace corvane::test {

class GuardedBytes {
public:
    // Holds `size` bytes copied from `bytes`; Data() is aligned like the size.
    GuardedBytes(const void* bytes, size_t size) : m_page(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        m_length = (size + m_page - 1) / m_page * m_page + m_page;
        void* memory = mmap(nullptr, m_length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED || mprotect(static_cast<char*>(memory) + m_length - m_page, m_page, PROT_NONE) != 0)
            throw std::runtime_error("no guarded memory");
        m_start = static_cast<uint8_t*>(memory);
        m_data = m_start + m_length - m_page - size;
        if (size > 0)
            std::memcpy(m_data, bytes, size);
    }
    ~GuardedBytes() { munmap(m_start, m_length); }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    uint8_t* Data() const { return m_data; }

private:
    size_t m_page;
    size_t m_length;
    uint8_t* m_start;
    uint8_t* m_data;
};

}    // namespace corvane::test
