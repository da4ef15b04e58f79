// The memory that a renderer lends for one picture. A renderer has two buffers: one is shown, or kept for redraws,
// while the next picture is written into the other.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "base/AlignedBuffer.h"
#include "base/PictureView.h"

namespace corvane {

// One of the two. A renderer derives the owner of the pixels from it. Two threads share `lent` only: the holder of a
// LentBuffer owns everything else until it clears `lent`.
struct BufferSlot {
    virtual ~BufferSlot() = default;

    PictureView view;
    std::atomic<bool> lent{false};
};

// Owns a slot until the object is destroyed, on any thread; the slot can then be lent again. It keeps the memory alive,
// not the renderer.
class LentBuffer {
public:
    LentBuffer() = default;
    explicit LentBuffer(std::shared_ptr<BufferSlot> slot) : m_slot(std::move(slot)) {
        m_slot->lent.store(true, std::memory_order_relaxed);
    }
    LentBuffer(LentBuffer&&) noexcept = default;
    LentBuffer& operator=(LentBuffer&& other) noexcept {
        std::swap(m_slot, other.m_slot);
        return *this;
    }
    ~LentBuffer() { GiveBack(); }

    explicit operator bool() const { return m_slot != nullptr; }
    BufferSlot& Slot() const { return *m_slot; }
    void GiveBack() {
        if (m_slot != nullptr)
            m_slot->lent.store(false, std::memory_order_release);
        m_slot.reset();
    }

private:
    std::shared_ptr<BufferSlot> m_slot;
};

// The two buffers of a renderer. Only on the worker, but for the LentBuffers.
template <typename Slot>
class BufferPair {
public:
    bool HasFree() const {
        return std::any_of(m_slots.begin(), m_slots.end(), [](const auto& slot) { return IsFree(slot); });
    }
    // A free slot, made on first use; null where both are lent. May raise std::bad_alloc.
    std::shared_ptr<Slot> Free() {
        for (std::shared_ptr<Slot>& slot : m_slots) {
            if (!IsFree(slot))
                continue;
            if (slot == nullptr)
                slot = std::make_shared<Slot>();
            return slot;
        }
        return nullptr;
    }

private:
    static bool IsFree(const std::shared_ptr<Slot>& slot) {
        return slot == nullptr || !slot->lent.load(std::memory_order_acquire);
    }

    std::array<std::shared_ptr<Slot>, 2> m_slots;
};

// Buffers in plain memory.
class MemoryBuffers {
public:
    bool HasFree() const { return m_pair.HasFree(); }
    // Rows have RowBytes bytes. Empty where there is no memory, where both buffers are lent, for an unknown format, and
    // for PF_NV12.
    LentBuffer Lend(PictureSize size, uint32_t format);

private:
    struct MemorySlot : BufferSlot {
        AlignedBuffer memory;
        uint32_t format = 0;    // the argument of Lend
    };
    BufferPair<MemorySlot> m_pair;
};

}    // namespace corvane
