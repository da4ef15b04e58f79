// The skin of every export: null test, type test, forward; no exception leaves.
#pragma once

#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "base/Status.h"
#include "channels/StreamChannel.h"

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

// Runs `body` on the channel of a handle, as the first of these classes that it is; Status::WrongChannelType where it
// is none of them. The only place that takes a handle for what it is. Callees without a result give Status::Ok.
template <typename... Classes, typename Body>
uint32_t OnChannel(void* handle, Body&& body) noexcept {
    return Guard([&] {
        if (handle == nullptr)
            return Status::InvalidArgument;
        auto* const any = static_cast<IChannel*>(handle);
        Status status = Status::WrongChannelType;
        const auto tryAs = [&]<typename Class>() {
            auto* const channel = dynamic_cast<Class*>(any);
            if (channel == nullptr)
                return false;
            if constexpr (std::is_void_v<decltype(body(*channel))>) {
                body(*channel);
                status = Status::Ok;
            } else {
                status = body(*channel);
            }
            return true;
        };
        (void)(tryAs.template operator()<Classes>() || ...);
        return status;
    });
}

template <typename Body>
uint32_t OnStream(void* channel, Body&& body) noexcept {
    return OnChannel<StreamChannel>(channel, std::forward<Body>(body));
}

}    // namespace corvane
