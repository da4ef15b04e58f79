// What every export begins with: null test, test of the handle's class, then the call; no exception leaves.
#pragma once

#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "base/Status.h"
#include "channels/AVIChannel.h"
#include "channels/ChannelDecoder.h"
#include "channels/StreamChannel.h"
#include "entry/Handle.h"
#include "entry/Instance.h"

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

// Status::InvalidArgument for a handle that is null or of no instance.
template <typename Body>
uint32_t OnInstance(void* handle, Body&& body) noexcept {
    return Guard([&] {
        auto* const instance = ObjectOf<CCorvane_Option>(handle);
        return instance == nullptr ? Status::InvalidArgument : body(*instance);
    });
}

// Deletes any kind of channel.
inline uint32_t DeleteFrom(void* instance, void** channel) noexcept {
    if (channel == nullptr)
        return static_cast<uint32_t>(Status::InvalidArgument);
    return OnInstance(instance, [&](CCorvane_Option& own) {
        CORVANE_RETURN_IF_FAILED(own.Delete(*channel));
        *channel = nullptr;
        return Status::Ok;
    });
}

// Runs `body` on the channel of a handle, as the first of these classes that it is; Status::InvalidArgument for a null
// handle, Status::WrongChannelType for one of another class. A body without a result gives Status::Ok.
template <typename... Classes, typename Body>
uint32_t OnChannel(void* handle, Body&& body) noexcept {
    return Guard([&] {
        if (handle == nullptr)
            return Status::InvalidArgument;
        Status status = Status::WrongChannelType;
        const auto tryAs = [&]<typename Class>() {
            auto* const channel = ObjectOf<Class>(handle);
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

// For exports with a second required pointer. A null pointer is reported before the class of the handle is checked.
template <typename... Classes, typename Body>
uint32_t OnChannelWith(void* channel, const void* required, Body&& body) noexcept {
    return required == nullptr ? static_cast<uint32_t>(Status::InvalidArgument)
                               : OnChannel<Classes...>(channel, std::forward<Body>(body));
}

}    // namespace corvane
