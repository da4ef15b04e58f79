// The base of all kinds of channels. It holds no data.
//
// A channel is ended before it is destroyed, since callbacks that still run call exports on it.
#pragma once

#include <cstdint>

#include "base/HandleObject.h"

namespace corvane {

enum class ChannelType : uint32_t { Live = 0, Playback = 1, Decoder = 2, Avi = 3 };

class IChannel : public HandleObject {
public:
    virtual ChannelType GetChannelType() const = 0;
    // Whether the owner may end the channel now. False while a call on a channel runs that decodes on its caller's
    // thread; true keeps such calls out for good.
    virtual bool Close() { return true; }
    // Stops the channel for good and joins all its threads. The owner calls it before the destructor, while a JoinGuard
    // that allows it lives. A second call does nothing.
    virtual void End() = 0;
};

}    // namespace corvane
