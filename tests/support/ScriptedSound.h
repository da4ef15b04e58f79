// A sound system without hardware: what it does follows a script. By default its devices stand still, and a test takes
// samples from them by hand; a clocked one has a thread that takes them.
#pragma once

#include "platform/sound/SoundDevice.h"
#include "support/Testing.h"

namespace corvane::test {

class ScriptedSound final : public SoundSystem {
public:
    std::atomic<bool> fails{false}, clocked{false};                     // of openings from here on
    std::atomic<Gate*> holdsOpening{nullptr}, holdsClosing{nullptr};    // each waits at it
    std::atomic<int> openings{0}, openNow{0}, opensNow{0}, mostAtOnce{0};

    ScriptedSound() { m_devices.reserve(16); }    // so that no opening allocates but for its device
    ~ScriptedSound() override { EXPECT_EQ(openNow, 0); }

    std::unique_ptr<SoundDevice> Open(const SoundFormat& format, SoundSource& source) override {
        ++openings;
        ++opensNow;
        Hold(holdsOpening);
        --opensNow;
        return fails ? nullptr : std::make_unique<Device>(*this, format, source);
    }
    // The next `bytes` of the device that was opened last; empty where none is open.
    std::vector<uint8_t> Take(size_t bytes) {
        const std::lock_guard lock(m_mutex);
        std::vector<uint8_t> samples(m_devices.empty() ? 0 : bytes, 0xA5);
        if (!m_devices.empty())
            m_devices.back()->source.Fill(samples.data(), bytes);
        return samples;
    }
    SoundFormat Format() {
        const std::lock_guard lock(m_mutex);
        return m_devices.empty() ? SoundFormat{} : m_devices.back()->format;
    }

private:
    static void Hold(Gate* gate) { (void)(gate != nullptr && gate->Wait()); }

    struct Device final : SoundDevice {
        Device(ScriptedSound& owner, const SoundFormat& wanted, SoundSource& from)
            : format(wanted), system(owner), source(from) {
            if (system.clocked)
                thread = std::thread([this] {
                    for (std::array<uint8_t, 256> samples; !ends; std::this_thread::yield())
                        source.Fill(samples.data(), samples.size());
                });
            const std::lock_guard lock(system.m_mutex);
            system.m_devices.push_back(this);
            system.mostAtOnce = std::max<int>(system.mostAtOnce, ++system.openNow);
        }
        ~Device() override {
            Hold(system.holdsClosing);
            ends = true;
            if (thread.joinable())
                thread.join();
            const std::lock_guard lock(system.m_mutex);    // no Take runs
            std::erase(system.m_devices, this);
            --system.openNow;
        }

        const SoundFormat format;
        ScriptedSound& system;
        SoundSource& source;
        std::atomic<bool> ends{false};
        std::thread thread;
    };

    std::mutex m_mutex;
    std::vector<Device*> m_devices;    // those that are open
};

}    // namespace corvane::test
