#include <SDL.h>

#include <atomic>
#include <cstdarg>

#include "base/FailurePoint.h"
#include "base/Mutex.h"
#include "platform/Library.h"
#include "platform/sound/SoundDevice.h"

namespace corvane {

namespace {

using AlsaHandler = void (*)(const char* file, int line, const char* function, int error, const char* format,
                             va_list arguments);
using SetAlsaHandler = AlsaHandler(AlsaHandler);

// libasound writes what it complains of on the terminal, unless the calling thread has a handler.
std::atomic<SetAlsaHandler*> setAlsaHandler{nullptr};
void SaysNothing(const char*, int, const char*, int, const char*, va_list) {}
void SilenceAlsa() {
    thread_local bool silent = false;
    SetAlsaHandler* const set = setAlsaHandler.load(std::memory_order_relaxed);
    if (silent || set == nullptr)
        return;
    (void)set(&SaysNothing);
    silent = true;
}

// SDL keeps an error text for each thread, and forgets it with threads that are not its own: called on each thread that
// opens or closes, which then frees the text when it ends.
void FreeErrorsAtThreadEnd() {
    struct Errors {
        ~Errors() { SDL_TLSCleanup(); }
    };
    static thread_local const Errors errors;
    (void)errors;
}

class SdlSystem final : public SoundSystem {
public:
    ~SdlSystem() override;    // at the end of the process
    std::unique_ptr<SoundDevice> Open(const SoundFormat& format, SoundSource& source) override;

private:
    class Use;
    class Device;
    bool BringUp() REQUIRES(m_sdl);

    Mutex m_sdl;    // one thread at a time opens and closes: SDL's list of devices has no lock. Held while SDL blocks
    bool m_ours GUARDED_BY(m_sdl) = false;    // the subsystem was brought up here
    Library m_alsa GUARDED_BY(m_sdl);

    Mutex m_lock;                              // a leaf, held for moments
    uint32_t m_uses GUARDED_BY(m_lock) = 0;    // devices that are open, being opened or being closed
    bool m_ended GUARDED_BY(m_lock) = false;
};

// Keeps the subsystem from being left.
class SdlSystem::Use {
public:
    explicit Use(SdlSystem& system) : m_system(system) {
        MutexLock lock(m_system.m_lock);
        m_allowed = !m_system.m_ended;
        m_system.m_uses += m_allowed ? 1 : 0;
    }
    ~Use() {
        MutexLock lock(m_system.m_lock);
        m_system.m_uses -= m_allowed ? 1 : 0;
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    bool Allowed() const { return m_allowed; }

private:
    SdlSystem& m_system;
    bool m_allowed = false;
};

class SdlSystem::Device final : public SoundDevice {
public:
    Device(SdlSystem& system, SoundSource& source) : m_system(system), m_source(source), m_use(system) {}
    ~Device() override {
        if (m_id == 0)
            return;
        FreeErrorsAtThreadEnd();
        MutexLock lock(m_system.m_sdl);
        SDL_PauseAudioDevice(m_id, 1);
        SDL_CloseAudioDevice(m_id);
    }

    bool Open(const SoundFormat& format) {
        if (!m_use.Allowed())
            return false;
        SDL_AudioSpec request{};
        request.freq = static_cast<int>(format.rate);
        request.format = AUDIO_S16LSB;
        request.channels = static_cast<Uint8>(format.channels);
        request.callback = [](void* device, Uint8* stream, int bytes) {
            SilenceAlsa();
            static_cast<Device*>(device)->m_source.Fill(stream, bytes > 0 ? static_cast<size_t>(bytes) : 0);
        };
        request.userdata = this;
        FreeErrorsAtThreadEnd();
        MutexLock lock(m_system.m_sdl);
        if (!m_system.BringUp() || failure::MustFail(failure::Site::PlatformCall))
            return false;
        SilenceAlsa();
        m_id = SDL_OpenAudioDevice(nullptr, 0, &request, nullptr, 0);
        if (m_id != 0)
            SDL_PauseAudioDevice(m_id, 0);
        return m_id != 0;
    }

private:
    SdlSystem& m_system;
    SoundSource& m_source;
    Use m_use;
    SDL_AudioDeviceID m_id = 0;    // 0: not open
};

// Again where the host has left SDL as a whole.
bool SdlSystem::BringUp() {
    if (m_ours && SDL_WasInit(SDL_INIT_AUDIO) != 0)
        return true;
    // Signals stay the host's. Without priority, so that a host that has set the hint keeps its value.
    SDL_SetHintWithPriority(SDL_HINT_NO_SIGNAL_HANDLERS, "1", SDL_HINT_DEFAULT);
    m_ours = !failure::MustFail(failure::Site::PlatformCall) && SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
    if (m_ours && m_alsa.OpenLoaded("libasound.so.2"))
        setAlsaHandler = m_alsa.Find<SetAlsaHandler>("snd_lib_error_set_local");
    return m_ours;
}

std::unique_ptr<SoundDevice> SdlSystem::Open(const SoundFormat& format, SoundSource& source) {
    auto device = std::make_unique<Device>(*this, source);
    return device->Open(format) ? std::move(device) : nullptr;
}

SdlSystem::~SdlSystem() {
    m_alsa.Keep();    // its function is still set on threads
    {
        MutexLock lock(m_lock);
        if (m_uses != 0)
            return;    // a sound server that hangs: SDL would wait for it
        m_ended = true;
    }
    MutexLock lock(m_sdl);    // nobody has it for long, since nobody uses a device
    if (m_ours && SDL_WasInit(SDL_INIT_AUDIO) != 0)
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
}

}    // namespace

SoundSystem& SoundSystem::Sdl() {
    static SdlSystem system;
    return system;
}

}    // namespace corvane
