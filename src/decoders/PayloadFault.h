// Why a payload that brought no picture could not bring one: what a client feeds by mistake.
#pragma once

#include <cstdint>

namespace corvane {

enum class PayloadFault { None, NoStartCode, WrongType };

// Only what is certain; None in doubt and for an empty payload. `streamType` is that of the decoder. Reads nothing
// outside (data, size), but all of it: for frames without a picture only.
PayloadFault FindPayloadFault(uint32_t streamType, const uint8_t* data, uint32_t size) noexcept;

}    // namespace corvane
