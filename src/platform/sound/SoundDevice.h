// Sound devices: the interface to the system that has them, so that a test can replace it by a scripted one.
//
// Opening and closing may block as long as a sound server likes; no other thread of the library waits for the thread
// that does them. Samples are interleaved, signed, 16 bits, little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace corvane {

struct SoundFormat {
    uint32_t rate = 0;    // samples per second of each channel
    uint32_t channels = 0;
    bool operator==(const SoundFormat&) const = default;
};

// Makes the sound of a device.
class SoundSource {
public:
    // Writes all `bytes` of `stream`. On the device's thread, one call at a time, with no lock of the library held.
    virtual void Fill(uint8_t* stream, size_t bytes) noexcept = 0;

protected:
    ~SoundSource() = default;
};

// An open device, which calls its source whenever it needs samples.
class SoundDevice {
public:
    // Closes the device. No Fill runs or comes afterwards, so it must not be destroyed inside one.
    virtual ~SoundDevice() = default;
};

class SoundSystem {
public:
    virtual ~SoundSystem() = default;
    // The default device in this format, converted where its hardware has another; null: there is none. `source` lives
    // until the device has been destroyed. Formats of limits::FitsSound only. Any thread. May raise std::bad_alloc.
    virtual std::unique_ptr<SoundDevice> Open(const SoundFormat& format, SoundSource& source) = 0;

    // SDL's audio subsystem, which the first Open brings up. At the end of the process it is left again if no device is
    // open then.
    static SoundSystem& Sdl();
};

}    // namespace corvane
