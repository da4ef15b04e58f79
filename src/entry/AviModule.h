// Recording of one instance: the module of the side library Movarix.so, and the channels made through it.
#pragma once

#include <list>
#include <map>
#include <memory>

#include "base/JoinGuard.h"
#include "base/Mutex.h"
#include "base/Status.h"
#include "channels/AVIChannel.h"
#include "channels/AviFunctionTable.h"

namespace corvane {

// Any thread. No lock is held while the library is called.
class AviModule {
public:
    // Null where there is no library, it lacks a function, it makes no module, or there is no memory. The library gets
    // the handle of `instance`, which must be complete: it may call exports at once.
    static std::shared_ptr<AviModule> Make(void* instance) noexcept;
    ~AviModule() { Release(); }
    AviModule(const AviModule&) = delete;
    AviModule& operator=(const AviModule&) = delete;

    // The status of the library where it makes none; then, and where std::bad_alloc is raised, nothing is left.
    Status Create(bool live, void** channel);
    // Deletes the channel of `handle`, if it is one of these. Failed inside a call of the library on that channel.
    Status Delete(const void* handle);
    // For all channels. False: one of them is not to be ended here.
    bool Guard(std::list<JoinGuard>& guards) const;
    // Deletes all channels, in the order of their handles, then the module. No channel can be made afterwards.
    void Release() noexcept;

    template <auto kFunction, typename... Arguments>
    Status Call(Arguments... arguments) const {
        return CallAvi(m_table.*kFunction, m_module, arguments...);
    }

private:
    explicit AviModule(const AviFunctionTable& table) : m_table(table) {}

    const AviFunctionTable& m_table;    // of the process
    void* m_module = nullptr;           // constant after Make, until Release
    mutable Mutex m_lock;
    std::map<const void*, std::unique_ptr<CAVIChannel>> m_channels GUARDED_BY(m_lock);
    bool m_released GUARDED_BY(m_lock) = true;
};

}    // namespace corvane
