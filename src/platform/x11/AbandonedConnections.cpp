#include "platform/x11/AbandonedConnections.h"

#include <time.h>

#include <utility>

#include "platform/x11/Connection.h"

namespace corvane {

namespace {

struct LastReaper {
    ~LastReaper() {
        constexpr timespec kPause{0, 1'000'000};
        for (int i = 0; i < 100 && AbandonedConnections::Instance().Reap(); ++i)
            nanosleep(&kPause, nullptr);
    }
};

}    // namespace

AbandonedConnections& AbandonedConnections::Instance() {
    static auto& list = *new AbandonedConnections;
    return list;
}

void AbandonedConnections::Add(std::shared_ptr<Connection> closed) noexcept {
    MutexLock lock(m_lock);
    closed->m_nextAbandoned = std::move(m_first);
    m_first = std::move(closed);
}

std::shared_ptr<Connection> AbandonedConnections::Reclaim(const std::string& display) noexcept {
    static const LastReaper reaper;
    return Sweep(&display);
}

bool AbandonedConnections::Reap() noexcept {
    (void)Sweep(nullptr);
    MutexLock lock(m_lock);
    return m_first != nullptr;
}

std::shared_ptr<Connection> AbandonedConnections::Sweep(const std::string* display) noexcept {
    std::shared_ptr<Connection> finished;    // freed without the lock
    std::shared_ptr<Connection> reclaimed;
    MutexLock lock(m_lock);
    for (std::shared_ptr<Connection>* place = &m_first; *place != nullptr;) {
        const bool ended = (*place)->Finished();
        const bool serves = !ended && reclaimed == nullptr && display != nullptr && (*place)->m_display == *display &&
                            (*place)->Revive();
        if (!ended && !serves) {
            place = &(*place)->m_nextAbandoned;
            continue;
        }
        std::shared_ptr<Connection> one = std::move(*place);
        *place = std::move(one->m_nextAbandoned);
        if (serves) {
            reclaimed = std::move(one);
            continue;
        }
        one->m_thread.Join();
        one->m_nextAbandoned = std::move(finished);
        finished = std::move(one);
    }
    lock.Unlock();
    return reclaimed;
}

}    // namespace corvane
