// A pool of reusable frames. Frames that a renderer still holds keep the pool alive after the end of its decoder.
//
// Threads: Get, AddRef and Release may be called from any thread. The lock covers a queue operation only, never the
// making or the end of a frame.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/Mutex.h"

namespace QMRX::SDK::Utility {

template <typename T>
class FrameQueue {
public:
    // The pool itself, owned by the queue's holders and by every frame in use.
    class Impl {
    public:
        Impl() = default;
        Impl(const Impl&) = delete;
        Impl& operator=(const Impl&) = delete;
        ~Impl() {
            for (T* spare : m_spares)
                delete spare;
        }

        // The spare that rests longest, or null.
        T* Pop() EXCLUDES(m_mutex) {
            corvane::MutexLock lock(m_mutex);
            if (m_spares.empty())
                return nullptr;
            T* spare = m_spares.front();
            m_spares.erase(m_spares.begin());    // of a few
            return spare;
        }

        // False when there is no memory to keep it.
        bool Push(T* frame) noexcept EXCLUDES(m_mutex) {
            try {
                corvane::MutexLock lock(m_mutex);
                m_spares.push_back(frame);
                return true;
            } catch (...) {
                return false;
            }
        }

        size_t Spares() EXCLUDES(m_mutex) {
            corvane::MutexLock lock(m_mutex);
            return m_spares.size();
        }

    private:
        corvane::Mutex m_mutex;
        std::vector<T*> m_spares GUARDED_BY(m_mutex);    // a deque allocates as frames go through it
    };

    FrameQueue() : m_impl(std::make_shared<Impl>()) {}

    // A spare frame, else a new one, with one reference. Raises the exceptions of the constructor of T
    // (std::bad_alloc).
    T* Get() {
        T* frame = m_impl->Pop();
        if (frame == nullptr)
            frame = new T();
        frame->Leave(m_impl);
        return frame;
    }

    size_t Spares() const { return m_impl->Spares(); }

private:
    std::shared_ptr<Impl> m_impl;
};

// Base of every pooled frame T: `class Frame : public PooledFrame<Frame>`.
template <typename T>
class PooledFrame {
public:
    PooledFrame() = default;
    PooledFrame(const PooledFrame&) = delete;
    PooledFrame& operator=(const PooledFrame&) = delete;

    void AddRef() noexcept { m_references.fetch_add(1, std::memory_order_relaxed); }

    // The last reference returns the frame to its pool, or destroys it when the pool has no other owner.
    void Release() noexcept {
        if (m_references.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        // The local share may be the pool's last owner: the pool, and with it this frame, then ends at the closing
        // brace.
        const std::shared_ptr<typename FrameQueue<T>::Impl> pool = std::move(m_pool);
        if (!pool->Push(static_cast<T*>(this)))
            delete static_cast<T*>(this);
    }

    // For the owner, add_ref and release fields of DecodedFrame.
    static void AddRefOwner(void* owner) { static_cast<T*>(owner)->AddRef(); }
    static void ReleaseOwner(void* owner) { static_cast<T*>(owner)->Release(); }

protected:
    ~PooledFrame() = default;

private:
    friend class FrameQueue<T>;
    void Leave(const std::shared_ptr<typename FrameQueue<T>::Impl>& pool) noexcept {
        m_pool = pool;
        m_references.store(1, std::memory_order_relaxed);
    }

    std::atomic<uint32_t> m_references{0};
    std::shared_ptr<typename FrameQueue<T>::Impl> m_pool;    // empty while the frame rests in the pool
};

// One reference on a pooled frame.
template <typename T>
class FrameReference {
public:
    FrameReference() = default;
    explicit FrameReference(T* frame) : m_frame(frame) {}    // takes over the reference
    FrameReference(FrameReference&& other) noexcept : m_frame(std::exchange(other.m_frame, nullptr)) {}
    FrameReference& operator=(FrameReference&& other) noexcept {
        std::swap(m_frame, other.m_frame);
        return *this;
    }
    ~FrameReference() {
        if (m_frame != nullptr)
            m_frame->Release();
    }

    T* Get() const { return m_frame; }
    T* operator->() const { return m_frame; }
    explicit operator bool() const { return m_frame != nullptr; }

private:
    T* m_frame = nullptr;
};

}    // namespace QMRX::SDK::Utility
