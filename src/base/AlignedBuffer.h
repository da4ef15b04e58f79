// Picture memory: aligned to 64 bytes, zeroed, with spare bytes behind the end for whole-vector access.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace corvane {

class AlignedBuffer {
public:
    // What is kept, if large, has pages of its own, which go back to the system when it is freed. What lives for one
    // call comes from the allocator, which has written pages at hand: to be given new ones takes three times as long as
    // to convert a picture into them.
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
