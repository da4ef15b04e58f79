// The channel that records into AVI files: a handle of the side library, to which every call goes at once, on the
// thread of the caller. The library's calls count as callbacks of the channel, so that it cannot be deleted from
// inside.
#pragma once

#include "base/Thread.h"
#include "channels/AviFunctionTable.h"
#include "channels/IChannel.h"

namespace corvane {

class CAVIChannel final : public IChannel {
public:
    explicit CAVIChannel(const AviFunctionTable& table) : m_table(table) {}
    ~CAVIChannel() override {
        if (m_made)
            (void)CallAvi(m_table.Movarix_DeleteChannel, &m_channel);
    }
    CAVIChannel(const CAVIChannel&) = delete;
    CAVIChannel& operator=(const CAVIChannel&) = delete;

    ChannelType GetChannelType() const override { return ChannelType::Avi; }
    void End() override {}

    // Makes the library's channel, once; the destructor deletes it.
    Status Make(bool live, void* module) {
        const Status status =
            CallAvi(live ? m_table.Movarix_CreateLiveChannel : m_table.Movarix_CreateChannel, module, &m_channel);
        m_made = Ok(status);
        return status;
    }
    template <auto kFunction, typename... Arguments>
    Status Call(Arguments... arguments) {
        const Thread::ScopedOwner scoped(Handle());
        return CallAvi(m_table.*kFunction, m_channel, arguments...);
    }
    Status SetOption(int32_t id, uint64_t value, uint64_t extra) {
        return Call<&AviFunctionTable::Movarix_SetChannelOption>(
            static_cast<uint32_t>(id), static_cast<uint32_t>(value), static_cast<uint32_t>(extra));
    }

private:
    const AviFunctionTable& m_table;    // of the process
    void* m_channel = nullptr;          // constant after Make
    bool m_made = false;                // likewise
};

}    // namespace corvane
