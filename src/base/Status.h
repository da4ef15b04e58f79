// The status numbers of the exports as a type of their own. Negative is failure. Converted to the public word once, in
// entry/.
#pragma once

#include <cstdint>

namespace corvane {

enum class [[nodiscard]] Status : int32_t{
    Ok = 0,
    Failed = -1,
    WrongChannelType = static_cast<int32_t>(0x80000001u),
    OutOfMemory = static_cast<int32_t>(0x80000002u),
    InvalidArgument = static_cast<int32_t>(0x80000003u),
    NotSupported = static_cast<int32_t>(0x80000004u),
    VersionMismatch = static_cast<int32_t>(0x80000005u),
    UnsupportedMedia = static_cast<int32_t>(0x8006010Au),
    QueueFull = static_cast<int32_t>(0x8006010Cu),
    DecodeOnlyInstance = static_cast<int32_t>(0x80060111u),
    UnknownPictureFormat = static_cast<int32_t>(0x80060116u),
    ChannelNotStarted = static_cast<int32_t>(0x8006011Bu),
    BufferTooSmall = static_cast<int32_t>(0x80060124u),
};

constexpr bool Ok(Status status) {
    return static_cast<int32_t>(status) >= 0;
}

// Where the argument, a Status, is a failure, returns it from the calling function, which returns Status. The argument
// is evaluated once.
#define CORVANE_RETURN_IF_FAILED(...)                                                             \
    do {                                                                                          \
        if (const ::corvane::Status corvaneStatus = (__VA_ARGS__); !::corvane::Ok(corvaneStatus)) \
            return corvaneStatus;                                                                 \
    } while (false)

}    // namespace corvane
