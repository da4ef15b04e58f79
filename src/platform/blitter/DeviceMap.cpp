#include "platform/blitter/DeviceMap.h"

#include <utility>

#include "platform/blitter/Blitter.h"

namespace corvane {

void DeviceMap::Open() {
    MutexLock lock(m_lock);
    if (m_users == 0) {
        for (const Monitor& monitor : m_blitter.Enumerate())
            if (monitor.handle != 0)
                AddLocked(monitor);
        if (m_devices.empty())
            AddLocked(m_blitter.Desktop());
    }
    ++m_users;
}

void DeviceMap::Close() {
    std::map<uint64_t, std::unique_ptr<BlitDevice>> dying;    // dies after the lock is dropped
    MutexLock lock(m_lock);
    if (--m_users == 0)
        dying.swap(m_devices);
}

void DeviceMap::AddLocked(const Monitor& monitor) {
    std::unique_ptr<BlitDevice> device = m_blitter.CreateDevice(monitor);
    if (device != nullptr)
        m_devices.emplace(monitor.handle, std::move(device));
}

BlitDevice* DeviceMap::Find(const Monitor& monitor) {
    MutexLock lock(m_lock);
    auto found = m_devices.find(monitor.handle);
    if (found == m_devices.end()) {
        AddLocked(monitor);
        found = m_devices.find(monitor.handle);
    }
    return found != m_devices.end() ? found->second.get() : nullptr;
}

uint32_t DeviceMap::Users() const {
    MutexLock lock(m_lock);
    return m_users;
}

}    // namespace corvane
