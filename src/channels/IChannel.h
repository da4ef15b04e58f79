// The base of everything that a channel handle can stand for. It holds no data.
#pragma once

#include <cstdint>

namespace corvane {

enum class ChannelType : uint32_t { Live = 0, Playback = 1, Decoder = 2, Avi = 3 };

class IChannel {
public:
    virtual ~IChannel() = default;
    virtual ChannelType GetChannelType() const = 0;
};

}    // namespace corvane
