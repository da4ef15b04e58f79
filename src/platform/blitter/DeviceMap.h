// The devices of a blitter, one for each monitor, while there are users.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "base/Mutex.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

class Blitter;
class BlitDevice;

class DeviceMap {
public:
    explicit DeviceMap(Blitter& blitter) : m_blitter(blitter) {}

    // Keeps the map open.
    class Use {
    public:
        explicit Use(DeviceMap& map) : m_map(&map) { map.Open(); }
        ~Use() { m_map->Close(); }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        // The device of a monitor; null where it cannot be made. Monitors that were not known when the map was opened
        // are added, and a failed device is tried again by the next caller. Lasts as long as the use.
        BlitDevice* Find(const Monitor& monitor) const { return m_map->Find(monitor); }

    private:
        DeviceMap* m_map;
    };

    uint32_t Users() const;

private:
    void Open();
    void Close();
    BlitDevice* Find(const Monitor& monitor);
    void AddLocked(const Monitor& monitor) REQUIRES(m_lock);

    Blitter& m_blitter;
    mutable Mutex m_lock;    // taken alone
    uint32_t m_users GUARDED_BY(m_lock) = 0;
    std::map<uint64_t, std::unique_ptr<BlitDevice>> m_devices GUARDED_BY(m_lock);    // by the monitor's handle
};

}    // namespace corvane
