// The numbered options of all kinds of channels, in one table: to add one is to add its row and its number.
#pragma once

#include <cstdint>
#include <span>

#include "base/Status.h"
#include "channels/IChannel.h"

namespace corvane {

class CChannelDecoder;
class RawClient;
class StreamChannel;
class VideoDecoderHolder;

// Bits of the kinds that know an option: of ChannelType.
constexpr uint8_t KindBit(ChannelType type) {
    return static_cast<uint8_t>(1u << static_cast<uint32_t>(type));
}
inline constexpr uint8_t kStreamKinds = KindBit(ChannelType::Live) | KindBit(ChannelType::Playback);
inline constexpr uint8_t kDecodingKinds = kStreamKinds | KindBit(ChannelType::Decoder);

// The objects that options act on. A kind of channel fills those that it has; a row uses only those of its kinds.
struct OptionTargets {
    StreamChannel* stream = nullptr;
    CChannelDecoder* decoder = nullptr;    // this or `stream`
    // Of both.
    RawClient* raw = nullptr;
    VideoDecoderHolder* video = nullptr;
};

struct OptionRow {
    int32_t id;    // CORVANE_OPTION_*
    uint8_t kinds;
    Status (*apply)(OptionTargets& targets, uint64_t value, uint64_t extra);
    const char* sentence;    // with which the header's text of this option begins
};

// In ascending order of their numbers.
std::span<const OptionRow> OptionTable();

// Status::NotSupported for a number that this kind of channel does not have.
Status ApplyOption(ChannelType type, OptionTargets& targets, int32_t id, uint64_t value, uint64_t extra);

}    // namespace corvane
