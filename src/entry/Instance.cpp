#include "entry/Instance.h"

#include <utility>

#include "base/EndScope.h"

namespace corvane {

Status CCorvane_Option::CreateChannel(void** channel, const ChannelSettings* settings) {
    if ((m_defaults.flags & CORVANE_FLAG_DECODE_ONLY) != 0)
        return Status::DecodeOnlyInstance;
    const ChannelSettings chosen = settings != nullptr ? *settings : ChannelSettings{};
    auto made = std::make_unique<CChannelLive>(0, m_defaults.flags);
    CChannelLive* const object = made.get();
    IChannel* const handle = object;
    const auto pick = [&](uint32_t bit, auto own, auto other) { return (chosen.mask & bit) != 0 ? own : other; };
    void* const none = nullptr;
    object->Render().SetStreamInfo(pick(0x0001, chosen.streamInfo, m_defaults.streamInfo),
                                   pick(0x0004, chosen.streamInfoContext, none));
    object->Render().SetOsd(pick(0x0002, chosen.osd, m_defaults.osd), pick(0x0008, chosen.osdContext, none));
    object->Render().SetBackground(m_defaults.background);
    object->Apply(chosen);
    auto owner = std::make_unique<DeleterImpl<CChannelLive>>(std::move(made));
    {
        MutexLock lock(m_lock);
        object->SetFactories(m_factories);
        m_objects.emplace(handle, std::move(owner));
    }
    // With a window the text callback may run at once, and may want the handle.
    void* const before = std::exchange(*channel, handle);
    try {
        object->Render().SetWindow(chosen.window);
    } catch (...) {
        *channel = before;
        (void)Delete(handle);
        throw;
    }
    return Status::Ok;
}

Status CCorvane_Option::Delete(const void* handle) {
    const EndScope end(handle);
    if (!end.Allowed())
        return Status::Failed;
    std::unique_ptr<Deleter> dying;    // destroyed after the lock is dropped
    MutexLock lock(m_lock);
    if (const auto found = m_objects.find(handle); found != m_objects.end()) {
        dying = std::move(found->second);
        m_objects.erase(found);
    }
    return Status::Ok;
}

Status CCorvane_Option::DeleteAll() {
    {
        MutexLock lock(m_lock);
        for (const auto& [handle, owner] : m_objects)
            if (!EndScope(handle).Allowed())
                return Status::Failed;
    }
    for (;;) {
        std::unique_ptr<Deleter> dying;
        MutexLock lock(m_lock);
        if (m_objects.empty())
            return Status::Ok;
        dying = std::move(m_objects.begin()->second);
        m_objects.erase(m_objects.begin());
        const EndScope end(dying->Object());
        lock.Unlock();
        dying.reset();
        lock.Lock();
    }
}

}    // namespace corvane
