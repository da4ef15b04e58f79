// Finds the mistake of a client for which a payload could not give a picture.
#pragma once

#include <cstdint>

namespace corvane {

enum class PayloadFault { None, NoStartCode, WrongType };

// Only a certain fault; None in doubt and for an empty payload. `streamType` is that of the decoder. Reads all of
// (data, size) and nothing else, so call it for frames without a picture only.
PayloadFault FindPayloadFault(uint32_t streamType, const uint8_t* data, uint32_t size) noexcept;

}    // namespace corvane
