// Bytes between two pages that cannot be touched: any access before the first or after the last ends the test,
// without a sanitizer as with one.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace corvane::test {

class GuardedBytes {
public:
    // Which of the two pages the bytes touch.
    enum class At { End, Begin };

    // Holds `size` bytes copied from `bytes`. At the end, Data() is rounded down to `alignment`, so that fewer bytes
    // than that lie between the last one and the page.
    GuardedBytes(const void* bytes, size_t size, At at = At::End, size_t alignment = 1) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t inner = (size + alignment + page - 1) / page * page;
        m_length = inner + 2 * page;
        void* memory = mmap(nullptr, m_length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED || mprotect(static_cast<char*>(memory) + page, inner, PROT_READ | PROT_WRITE) != 0)
            throw std::runtime_error("no guarded memory");
        m_start = static_cast<uint8_t*>(memory);
        m_data = m_start + page + (at == At::Begin ? 0 : (inner - size) / alignment * alignment);
        if (size > 0)
            std::memcpy(m_data, bytes, size);
    }
    explicit GuardedBytes(const std::vector<uint8_t>& bytes, At at = At::End, size_t alignment = 1)
        : GuardedBytes(bytes.data(), bytes.size(), at, alignment) {}
    ~GuardedBytes() { munmap(m_start, m_length); }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    uint8_t* Data() const { return m_data; }

private:
    size_t m_length;
    uint8_t* m_start;
    uint8_t* m_data;
};

}    // namespace corvane::test
