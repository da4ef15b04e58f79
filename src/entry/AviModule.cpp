#include "entry/AviModule.h"

#include <algorithm>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "base/Thread.h"
#include "platform/Library.h"

namespace corvane {

namespace {

// Looks one function up; false where the library has none.
template <auto kField>
bool Find(AviFunctionTable& table, const Library& library, const char* name) {
    using Function = std::remove_pointer_t<std::remove_reference_t<decltype(table.*kField)>>;
    return (table.*kField = library.Find<Function>(name)) != nullptr;
}

#define CORVANE_AVI(name) \
    { #name, &Find < &AviFunctionTable::name> }

// In the order of the table.
constexpr struct {
    const char* name;
    bool (*find)(AviFunctionTable& table, const Library& library, const char* name);
} kRequired[] = {CORVANE_AVI(Movarix_Initial),
                 CORVANE_AVI(Movarix_Release),
                 CORVANE_AVI(Movarix_CreateChannel),
                 CORVANE_AVI(Movarix_CreateLiveChannel),
                 CORVANE_AVI(Movarix_DeleteChannel),
                 CORVANE_AVI(Movarix_StartChannel),
                 CORVANE_AVI(Movarix_StopChannel),
                 CORVANE_AVI(Movarix_InputMedia),
                 CORVANE_AVI(Movarix_InputDecodedMedia),
                 CORVANE_AVI(Movarix_ChooseVideoCompressor),
                 CORVANE_AVI(Movarix_ChooseAudioCompressor),
                 CORVANE_AVI(Movarix_SetVideoCompressorParam),
                 CORVANE_AVI(Movarix_GetVideoCompressorParam),
                 CORVANE_AVI(Movarix_SetAudioCompressorParam),
                 CORVANE_AVI(Movarix_GetAudioCompressorParam),
                 CORVANE_AVI(Movarix_ChooseChannelVideoCompressor),
                 CORVANE_AVI(Movarix_ChooseChannelAudioCompressor),
                 CORVANE_AVI(Movarix_SetChannelVideoCompressorParam),
                 CORVANE_AVI(Movarix_GetChannelVideoCompressorParam),
                 CORVANE_AVI(Movarix_SetChannelAudioCompressorParam),
                 CORVANE_AVI(Movarix_GetChannelAudioCompressorParam),
                 CORVANE_AVI(Movarix_SetChannelOption)};

#undef CORVANE_AVI

constexpr AviHostCallbacks kHost = {&Corvane_CreateDecoderChannel, &Corvane_DeleteDecoderChannel,
                                    &Corvane_InputToBeDecodedMediaFrame};

// Once a process, whatever comes of it: all instances share the table. The library is never unloaded, since threads of
// it may outlive every module.
const AviFunctionTable* LoadOnce() {
    static const std::optional<AviFunctionTable> table = [] {
        std::optional<AviFunctionTable> found;
        Library library;
        if (!library.Open("Movarix.so"))
            return found;
        AviFunctionTable functions;
        const bool complete =
            std::ranges::all_of(kRequired, [&](const auto& row) { return row.find(functions, library, row.name); });
        if (complete) {
            (void)Find<&AviFunctionTable::Movarix_GetCurrentFileSize>(functions, library, "Movarix_GetCurrentFileSize");
            found = functions;
        }
        library.Keep();
        return found;
    }();
    return table ? &*table : nullptr;
}

}    // namespace

std::shared_ptr<AviModule> AviModule::Make(void* instance) noexcept {
    try {
        const AviFunctionTable* const table = LoadOnce();
        if (table == nullptr)
            return nullptr;
        std::shared_ptr<AviModule> module(new AviModule(*table));
        const Thread::ScopedOwner scoped(instance);
        if (!Ok(CallAvi(table->Movarix_Initial, &module->m_module, instance, &kHost)))
            return nullptr;
        MutexLock lock(module->m_lock);
        module->m_released = false;
        return module;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

Status AviModule::Create(bool live, void** channel) {
    auto made = std::make_unique<CAVIChannel>(m_table);
    const Status status = made->Make(live, m_module);
    CORVANE_RETURN_IF_FAILED(status);
    void* const handle = made->Handle();
    MutexLock lock(m_lock);
    if (m_released)
        return Status::Failed;
    m_channels.emplace(handle, std::move(made));
    *channel = handle;
    return status;
}

Status AviModule::Delete(const void* handle) {
    const JoinGuard end(handle);
    if (!end.Allowed())
        return Status::Failed;
    std::unique_ptr<CAVIChannel> dying;    // deleted after the lock is dropped
    MutexLock lock(m_lock);
    if (const auto found = m_channels.find(handle); found != m_channels.end()) {
        dying = std::move(found->second);
        m_channels.erase(found);
    }
    return Status::Ok;
}

bool AviModule::Guard(std::list<JoinGuard>& guards) const {
    MutexLock lock(m_lock);
    return std::ranges::all_of(m_channels, [&](const auto& row) { return guards.emplace_back(row.first).Allowed(); });
}

void AviModule::Release() noexcept {
    std::map<const void*, std::unique_ptr<CAVIChannel>> dying;
    {
        MutexLock lock(m_lock);
        if (std::exchange(m_released, true))
            return;
        dying.swap(m_channels);
    }
    while (!dying.empty())
        dying.erase(dying.begin());
    (void)CallAvi(m_table.Movarix_Release, &m_module);
}

}    // namespace corvane
