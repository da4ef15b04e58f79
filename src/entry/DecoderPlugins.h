// The decoder plug-ins of an instance: finds their factories, and keeps their libraries loaded for the channels.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "base/Mutex.h"
#include "decoders/DecoderFactories.h"
#include "platform/Library.h"

namespace corvane {

// Any thread. No other lock of the library may be held: code of the plug-ins runs while they are loaded and unloaded.
class DecoderPlugins {
public:
    using Store = std::function<void(const DecoderFactories&)>;

    DecoderPlugins() = default;
    ~DecoderPlugins() { Close(); }
    DecoderPlugins(const DecoderPlugins&) = delete;
    DecoderPlugins& operator=(const DecoderPlugins&) = delete;

    // Loads the plug-ins of `directory` whose factories are still missing. After each library that has some, `store`
    // gets all that were found so far. Waits for a load in another thread. Does nothing in the code of a plug-in, and
    // after Close. Raises std::bad_alloc with nothing done.
    void Load(const char* directory, const Store& store) EXCLUDES(m_lock);

    // Unloads the libraries. No decoder of theirs may be left, and no reference on a picture of one.
    void Close() noexcept EXCLUDES(m_lock);

private:
    struct Held {
        Library library;
        bool used = false;    // channels may have factories of it
    };
    // The libraries of one plug-in, the newest last. One without a factory is replaced by the next; one with factories
    // stays, since decoders of theirs may run.
    using Holder = std::vector<Held>;
    enum Holders : size_t { Hikvision, Cuvid, Dxva2, QuickSync, kHolders, Unheld = kHolders };

    struct Slot;
    struct Plugin;
    static const std::array<Plugin, 5>& Plugins();
    bool LoadOne(const Plugin& plugin, const char* path) REQUIRES(m_lock);
    static void Keep(Holder& holder, Held&& loaded) noexcept;

    Mutex m_lock;    // held while libraries start and end
    DecoderFactories m_found GUARDED_BY(m_lock);
    std::array<Holder, kHolders> m_holders GUARDED_BY(m_lock);
    bool m_closed GUARDED_BY(m_lock) = false;
};

}    // namespace corvane
