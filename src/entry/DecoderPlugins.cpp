#include "entry/DecoderPlugins.h"

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/Thread.h"

namespace corvane {

struct DecoderPlugins::Slot {
    const char* name;    // of the function
    bool (*isSet)(const DecoderFactories& factories);
    // Fills an empty slot; false where the library has no such function.
    bool (*fill)(DecoderFactories& factories, const Library& library, const char* name);
};

struct DecoderPlugins::Plugin {
    const char* file;
    Holders holder;
    std::span<const Slot> slots;
    size_t deciding;    // the plug-in is not loaded where one of the first so many slots is set
};

namespace {

template <auto kSlot>
bool IsSet(const DecoderFactories& factories) {
    return factories.*kSlot != nullptr;
}

template <auto kSlot>
bool Fill(DecoderFactories& factories, const Library& library, const char* name) {
    using Function = std::remove_pointer_t<std::remove_reference_t<decltype(factories.*kSlot)>>;
    if (factories.*kSlot == nullptr)
        return (factories.*kSlot = library.Find<Function>(name)) != nullptr;
    return false;
}

constexpr size_t kLongestName = 64;    // of a plug-in's file

}    // namespace

// clang-format off
#define CORVANE_SLOT(name) {#name, &IsSet<&DecoderFactories::name>, &Fill<&DecoderFactories::name>}
// clang-format on

// In the order of loading.
const std::array<DecoderPlugins::Plugin, 5>& DecoderPlugins::Plugins() {
    static constexpr Slot dahua[] = {CORVANE_SLOT(GetDecoderIsolated_Dahua)};
    static constexpr Slot hikvision[] = {CORVANE_SLOT(GetDecoderIsolated_Hikvision)};
    static constexpr Slot cuvid[] = {
        CORVANE_SLOT(GetDecoderIsolated_CUVID_MP4V),    CORVANE_SLOT(GetDecoderIsolated_CUVID_H264),
        CORVANE_SLOT(GetDecoderIsolated_CUVID_HEVC),    CORVANE_SLOT(GetDecoderIsolated_CUVID_MP4V_v2),
        CORVANE_SLOT(GetDecoderIsolated_CUVID_H264_v2), CORVANE_SLOT(GetDecoderIsolated_CUVID_HEVC_v2)};
    static constexpr Slot dxva2[] = {
        CORVANE_SLOT(GetDecoderIsolated_DXVA2Native), CORVANE_SLOT(GetDecoderIsolated_DXVA2Native_HEVC),
        CORVANE_SLOT(GetDecoderIsolated_DXVA2_v2), CORVANE_SLOT(GetDecoderIsolated_DXVA2_HEVC_v2)};
    static constexpr Slot quickSync[] = {CORVANE_SLOT(GetDecoderIsolated_QuickSync),
                                         CORVANE_SLOT(GetDecoderIsolated_QuickSync_HEVC)};
    static constexpr std::array<Plugin, 5> plugins = {{{"DecoderIsolated_Dahua.so", Unheld, dahua, 1},
                                                       {"DecoderIsolated_Hikvision.so", Hikvision, hikvision, 1},
                                                       {"DecoderIsolated_CUVID.so", Cuvid, cuvid, 3},
                                                       {"DecoderIsolated_DXVA2.so", Dxva2, dxva2, 2},
                                                       {"DecoderIsolated_QuickSync.so", QuickSync, quickSync, 2}}};
    return plugins;
}

#undef CORVANE_SLOT

void DecoderPlugins::Load(const char* directory, const Store& store) {
    if (Thread::InPlugin())    // this thread may hold the lock
        return;
    std::string path(directory);
    if (!path.empty() && path.back() != '/')
        path += '/';
    const size_t folder = path.size();
    path.reserve(folder + kLongestName);
    MutexLock lock(m_lock);
    if (m_closed)
        return;
    for (Holder& holder : m_holders)
        holder.reserve(holder.size() + 1);
    for (const Plugin& plugin : Plugins()) {    // nothing from here on allocates
        const auto deciding = plugin.slots.first(plugin.deciding);
        if (std::ranges::any_of(deciding, [&](const Slot& slot) REQUIRES(m_lock) { return slot.isSet(m_found); }))
            continue;
        path.replace(folder, std::string::npos, plugin.file);
        if (LoadOne(plugin, path.c_str()))
            store(m_found);
    }
}

// Whether factories were found.
bool DecoderPlugins::LoadOne(const Plugin& plugin, const char* path) {
    const Thread::ScopedOwner scope(Thread::PluginCode());
    Held loaded;
    if (!loaded.library.Open(path))
        return false;
    for (const Slot& slot : plugin.slots)
        loaded.used |= slot.fill(m_found, loaded.library, slot.name);
    const bool found = loaded.used;
    if (plugin.holder != Unheld)
        Keep(m_holders[plugin.holder], std::move(loaded));
    else if (found)
        loaded.library.Keep();
    return found;
}

// The loader counts references: the same file is not unloaded by the loss of its older one.
void DecoderPlugins::Keep(Holder& holder, Held&& loaded) noexcept {
    for (Held& held : holder)
        loaded.used |= held.library == loaded.library && held.used;
    std::erase_if(holder, [&](const Held& held) { return !held.used || held.library == loaded.library; });
    holder.push_back(std::move(loaded));    // there is room
}

void DecoderPlugins::Close() noexcept {
    MutexLock lock(m_lock);
    m_closed = true;
    const Thread::ScopedOwner scope(Thread::PluginCode());
    for (const Holders which : {QuickSync, Dxva2, Cuvid, Hikvision})
        for (Holder& holder = m_holders[which]; !holder.empty();)
            holder.pop_back();
}

}    // namespace corvane
