// The skin of every export: null test, type test, forward; no exception leaves.
#pragma once

#include <cstdint>
#include <new>

#include "base/Status.h"
#include "channels/ChannelLive.h"

namespace corvane {

template <typename Body>
uint32_t Guard(Body&& body) noexcept {
    Status status;
    try {
        status = body();
    } catch (const std::bad_alloc&) {
        status = Status::OutOfMemory;
    } catch (...) {
        status = Status::Failed;
    }
    return static_cast<uint32_t>(status);
}

// Runs `body` on a live (or playback) channel. Callees without a result give Status::Ok.
template <typename Body>
uint32_t OnLive(void* channel, Body&& body) noexcept {
    return Guard([&] {
        if (channel == nullptr)
            return Status::InvalidArgument;
        auto* const any = static_cast<IChannel*>(channel);
        if (any->GetChannelType() != ChannelType::Live && any->GetChannelType() != ChannelType::Playback)
            return Status::WrongChannelType;
        auto& live = static_cast<CChannelLive&>(*any);
        if constexpr (std::is_void_v<decltype(body(live))>) {
            body(live);
            return Status::Ok;
        } else {
            return body(live);
        }
    });
}

}    // namespace corvane
