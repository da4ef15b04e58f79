#include "platform/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/FailurePoint.h"

namespace corvane {

namespace {

bool MustFail() {
    return failure::MustFail(failure::Site::PlatformCall);
}

// Reads until the end of the file or of the memory. A file may shrink meanwhile.
bool ReadAll(int file, uint8_t* to, size_t room, size_t& got) {
    for (got = 0; got < room;) {
        if (MustFail())
            return false;
        const ssize_t count = read(file, to + got, room - got);
        if (count == 0)
            return true;
        if (count > 0)
            got += static_cast<size_t>(count);
        else if (errno != EINTR)
            return false;
    }
    return true;
}

}    // namespace

Status ReadWholeFile(const char* path, uint64_t maxBytes, AlignedBuffer& memory, std::span<const uint8_t>& bytes) {
    bytes = {};
    if (path == nullptr)
        return Status::Failed;
    // O_NONBLOCK, since the opening of a pipe would wait for its writer.
    const int file = MustFail() ? -1 : open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0)
        return Status::Failed;
    struct stat info;
    Status status = Status::Failed;
    if (fstat(file, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
        static_cast<uint64_t>(info.st_size) <= maxBytes) {
        const auto size = static_cast<size_t>(info.st_size);
        size_t got = 0;
        if (!memory.Allocate(size)) {
            status = Status::OutOfMemory;
        } else if (ReadAll(file, memory.Data(), size, got) && got > 0) {
            bytes = {memory.Data(), got};
            status = Status::Ok;
        }
    }
    close(file);
    return status;
}

}    // namespace corvane
