#include "present/PictureMailbox.h"

#include <utility>

namespace corvane {

bool PictureMailbox::AwaitTaken(int64_t limit) {
    MutexLock lock(m_mutex);
    ThreadWait wait(limit);
    m_awaited = true;
    while (AwaitedLocked() && wait.On(m_changed, lock)) {
    }
    m_awaited = false;
    return !m_full;
}

bool PictureMailbox::Post(FinishedPicture& picture) {
    MutexLock lock(m_mutex);
    std::swap(m_picture, picture);
    m_interrupted = false;
    return std::exchange(m_full, true);
}

std::optional<FinishedPicture> PictureMailbox::TakeBack() {
    MutexLock lock(m_mutex);
    if (!m_full || m_picture.Buffer() == nullptr)
        return std::nullopt;
    m_full = false;
    return std::exchange(m_picture, FinishedPicture());
}

bool PictureMailbox::Take(FinishedPicture& kept, FinishedPicture& before) {
    MutexLock lock(m_mutex);
    if (!m_full)
        return false;
    before = std::move(kept);
    if (auto* const lent = std::get_if<LentBuffer>(&before.pixels))
        lent->GiveBack();
    kept = std::exchange(m_picture, FinishedPicture());
    m_full = false;
    m_changed.NotifyAll();
    return true;
}

void PictureMailbox::Interrupt() {
    MutexLock lock(m_mutex);
    m_interrupted = true;
    m_changed.NotifyAll();
}

void PictureMailbox::SetInClientCall(bool inside) {
    m_inClientCall = inside;
    if (!inside || !m_awaited)
        return;
    MutexLock lock(m_mutex);
    m_changed.NotifyAll();
}

}    // namespace corvane
