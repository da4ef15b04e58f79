// The instance: owns the channels of a client and passes its defaults to new ones.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "base/HandleObject.h"
#include "base/Mutex.h"
#include "base/Status.h"
#include "channels/ChannelLive.h"
#include "corvane/corvane.h"
#include "decoders/DecoderFactories.h"
#include "entry/AviModule.h"
#include "entry/DecoderPlugins.h"

namespace corvane {

class CCorvane_Option final : public HandleObject {
public:
    // Owns one object of the client until it is deleted or the instance ends.
    class Deleter {
    public:
        virtual ~Deleter() = default;
        virtual IChannel& Channel() = 0;
    };

    template <typename T>
    class DeleterImpl final : public Deleter {
    public:
        explicit DeleterImpl(std::unique_ptr<T> object) : m_object(std::move(object)) {}
        ~DeleterImpl() override { m_object->End(); }
        IChannel& Channel() override { return *m_object; }

    private:
        std::unique_ptr<T> m_object;
    };

    struct Defaults {
        CorvaneStreamInfoCallback streamInfo = nullptr;
        CorvaneOsdCallback osd = nullptr;
        uintptr_t audioWindow = 0;
        uint32_t audioFocusMode = 0;
        uint32_t flags = 0;
        uint32_t background = 0;    // 0x00BBGGRR
    };

    explicit CCorvane_Option(const Defaults& defaults) : m_defaults(defaults) {}

    // False for a wrong version word.
    static bool VersionFits(uint32_t version) { return (version & 0xFF) == 5 && ((version >> 8) & 0xFF) <= 5; }

    // Raises std::bad_alloc and std::system_error; nothing is left then. Failed during DeleteAll.
    Status CreateChannel(void** channel, const ChannelSettings* settings);

    Status CreateDecoderChannel(void** channel, const DecoderChannelSettings& settings);

    // Destroys the object of `handle`, if this instance has it. Status::Failed from a callback of that channel, and
    // where it is not to be closed now.
    Status Delete(const void* handle);

    // Makes the module that records; without the side library there is none. Called once, before the client has the
    // handle.
    void OpenAvi();
    // Null where there is none.
    std::shared_ptr<AviModule> Avi();
    // Deletes an AVI channel, if this instance has it. Status::WrongChannelType without a module; Status::Failed inside
    // a call of the side library on that channel, and from a callback of any decoder channel: the side library may be
    // waiting there.
    Status DeleteAvi(const void* handle);

    // Loads the decoder plug-ins of `directory`, for channels that are made later. Nothing is done in the code of a
    // plug-in. Raises std::bad_alloc with nothing done.
    void LoadDecoders(const char* directory);

    // Ends recording, destroys all objects, in the order of their handles, then unloads the plug-ins; no more can be
    // made afterwards. Status::Failed, with nothing done, from a callback of one of them, in the code of a plug-in,
    // where one of them waits (directly or through others) for the calling thread, and during another DeleteAll. Raises
    // std::bad_alloc, with nothing done.
    Status DeleteAll();

private:
    const Defaults m_defaults;
    DecoderPlugins m_plugins;    // brings its own lock

    Mutex m_lock;
    std::map<const void*, std::unique_ptr<Deleter>> m_objects GUARDED_BY(m_lock);
    DecoderFactories m_factories GUARDED_BY(m_lock){};      // empty until decoders are loaded
    std::shared_ptr<AviModule> m_avi GUARDED_BY(m_lock);    // null without the side library
    bool m_releasing GUARDED_BY(m_lock) = false;
};

}    // namespace corvane
