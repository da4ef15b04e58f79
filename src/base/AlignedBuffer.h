// Picture memory: aligned to 64 bytes, zeroed, with spare bytes after the end for whole-vector access.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace corvane {

class AlignedBuffer {
public:
    // Large memory that is kept has pages of its own, which return to the system when it is freed. Memory for one call
    // comes from the allocator, whose pages were written before: new pages take three times as long as the conversion
    // of a picture into them.
    enum class Use : uint8_t { Kept, Brief };

    AlignedBuffer() = default;
    ~AlignedBuffer() { Free(); }
    AlignedBuffer(AlignedBuffer&& other) noexcept
        : m_data(std::exchange(other.m_data, nullptr)),
          m_size(std::exchange(other.m_size, 0)),
          m_mapped(other.m_mapped) {}
    AlignedBuffer& operator=(AlignedBuffer&& other) noexcept {
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_mapped, other.m_mapped);
        return *this;
    }

    // Replaces the memory by `size` zeroed bytes; false when there is no memory, and then the buffer is empty.
    [[nodiscard]] bool Allocate(size_t size, Use use = Use::Kept) noexcept;
    void Free() noexcept;

    uint8_t* Data() const { return m_data; }
    size_t Size() const { return m_size; }
    explicit operator bool() const { return m_data != nullptr; }

private:
    uint8_t* m_data = nullptr;
    size_t m_size = 0;
    bool m_mapped = false;    // m_data is pages of its own
};

}    // namespace corvane
