// A small value that one thread at a time publishes and any thread reads without a lock. A reader that overlaps with a
// publisher reads again.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace corvane {

template <typename T>
class Published {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    explicit Published(const T& value = T()) { Publish(value); }

    // By one thread at a time.
    void Publish(const T& value) noexcept {
        std::array<uint64_t, kWords> words{};
        std::memcpy(words.data(), &value, sizeof value);
        const uint32_t before = m_turn.load(std::memory_order_relaxed);
        m_turn.store(before + 1, std::memory_order_relaxed);    // odd: the words are about to change
        std::atomic_thread_fence(std::memory_order_release);
        for (size_t i = 0; i < kWords; ++i)
            m_words[i].store(words[i], std::memory_order_relaxed);
        m_turn.store(before + 2, std::memory_order_release);
    }

    T Read() const noexcept {
        std::array<uint64_t, kWords> words;
        uint32_t before;
        uint32_t after;
        do {
            before = m_turn.load(std::memory_order_acquire);
            for (size_t i = 0; i < kWords; ++i)
                words[i] = m_words[i].load(std::memory_order_relaxed);
            std::atomic_thread_fence(std::memory_order_acquire);
            after = m_turn.load(std::memory_order_relaxed);
        } while (before != after || (before & 1) != 0);
        T value;
        std::memcpy(static_cast<void*>(&value), words.data(), sizeof value);
        return value;
    }

private:
    static constexpr size_t kWords = (sizeof(T) + 7) / 8;

    std::atomic<uint32_t> m_turn{0};
    std::array<std::atomic<uint64_t>, kWords> m_words{};
};

}    // namespace corvane
