#include "entry/Instance.h"

#include <list>
#include <utility>

#include "base/JoinGuard.h"
#include "base/Thread.h"
#include "channels/ChannelDecoder.h"

namespace corvane {

Status CCorvane_Option::CreateChannel(void** channel, const ChannelSettings* settings) {
    if ((m_defaults.flags & CORVANE_FLAG_DECODE_ONLY) != 0)
        return Status::DecodeOnlyInstance;
    const ChannelSettings chosen = settings != nullptr ? *settings : ChannelSettings{};
    auto made = std::make_unique<CChannelLive>(0, m_defaults.flags);
    CChannelLive* const object = made.get();
    void* const handle = object->Handle();
    const auto pick = [&](uint32_t bit, auto own, auto other) { return (chosen.mask & bit) != 0 ? own : other; };
    void* const none = nullptr;
    object->Render().SetStreamInfo({pick(CORVANE_SETTINGS_STREAM_INFO, chosen.streamInfo, m_defaults.streamInfo),
                                    pick(CORVANE_SETTINGS_STREAM_INFO_CONTEXT, chosen.streamInfoContext, none)});
    object->Render().SetCallback(&PresentSettings::osd, {pick(CORVANE_SETTINGS_TEXT, chosen.osd, m_defaults.osd),
                                                         pick(CORVANE_SETTINGS_TEXT_CONTEXT, chosen.osdContext, none)});
    object->Render().SetBackground(m_defaults.background);
    object->Render().Sound().SetFocus(m_defaults.audioWindow, m_defaults.audioFocusMode);
    object->Apply(chosen);
    WindowWatchPtr window = WindowWatch::Open(chosen.window, WindowWatch::Purpose::Draw);
    std::unique_ptr<Deleter> owner =
        std::make_unique<DeleterImpl<CChannelLive>>(std::move(made));    // destroyed after the lock is dropped
    // After the lock is dropped any thread may delete the channel, so nothing here touches it then.
    MutexLock lock(m_lock);
    if (m_releasing)
        return Status::Failed;
    object->SetFactories(m_factories);
    std::unique_ptr<Deleter>& place = m_objects[handle];
    // The handle is written before the window is set: the text callback may run at once and may use the handle.
    void* const before = std::exchange(*channel, handle);
    try {
        object->Render().SetWindow(std::move(window));
    } catch (...) {
        *channel = before;
        m_objects.erase(handle);
        throw;
    }
    place = std::move(owner);
    return Status::Ok;
}

Status CCorvane_Option::CreateDecoderChannel(void** channel, const DecoderChannelSettings& settings) {
    auto made = std::make_unique<CChannelDecoder>(settings, (m_defaults.flags & CORVANE_FLAG_DECODER_FALLBACK) != 0);
    CChannelDecoder* const object = made.get();
    std::unique_ptr<Deleter> owner = std::make_unique<DeleterImpl<CChannelDecoder>>(std::move(made));
    MutexLock lock(m_lock);
    if (m_releasing)
        return Status::Failed;
    object->SetFactories(WithoutAdapters(m_factories));
    m_objects.emplace(object->Handle(), std::move(owner));
    *channel = object->Handle();
    return Status::Ok;
}

Status CCorvane_Option::Delete(const void* handle) {
    const JoinGuard end(handle);
    if (!end.Allowed())
        return Status::Failed;
    std::unique_ptr<Deleter> dying;    // destroyed after the lock is dropped
    MutexLock lock(m_lock);
    if (const auto found = m_objects.find(handle); found != m_objects.end()) {
        if (!found->second->Channel().Close())
            return Status::Failed;
        dying = std::move(found->second);
        m_objects.erase(found);
    }
    return Status::Ok;
}

void CCorvane_Option::OpenAvi() {
    std::shared_ptr<AviModule> module = AviModule::Make(Handle());
    MutexLock lock(m_lock);
    m_avi = std::move(module);
}

std::shared_ptr<AviModule> CCorvane_Option::Avi() {
    MutexLock lock(m_lock);
    return m_avi;
}

Status CCorvane_Option::DeleteAvi(const void* handle) {
    std::shared_ptr<AviModule> module;
    {
        MutexLock lock(m_lock);
        module = m_avi;
        if (module == nullptr)
            return Status::WrongChannelType;
        for (const auto& [object, owner] : m_objects)
            if (owner->Channel().GetChannelType() == ChannelType::Decoder && Thread::WorksFor(object))
                return Status::Failed;
    }
    return module->Delete(handle);
}

void CCorvane_Option::LoadDecoders(const char* directory) {
    m_plugins.Load(directory, [this](const DecoderFactories& found) {
        MutexLock lock(m_lock);
        m_factories = found;
    });
}

Status CCorvane_Option::DeleteAll() {
    if (Thread::InPlugin() || Thread::WorksFor(Handle()))    // the latter: the side library's start
        return Status::Failed;
    std::list<JoinGuard> guards;    // of all objects; they live until the last object has ended
    std::shared_ptr<AviModule> module;
    {
        MutexLock lock(m_lock);
        if (m_releasing)
            return Status::Failed;
        for (const auto& [handle, owner] : m_objects)
            if (!guards.emplace_back(handle).Allowed())
                return Status::Failed;
        if (m_avi != nullptr && !m_avi->Guard(guards))
            return Status::Failed;
        m_releasing = true;
        module = m_avi;
    }
    if (module != nullptr)
        module->Release();    // it may delete decoder channels of its own
    std::map<const void*, std::unique_ptr<Deleter>> dying;
    {
        MutexLock lock(m_lock);
        dying.swap(m_objects);
    }
    while (!dying.empty())
        dying.erase(dying.begin());
    m_plugins.Close();    // after the decoders
    return Status::Ok;
}

}    // namespace corvane
