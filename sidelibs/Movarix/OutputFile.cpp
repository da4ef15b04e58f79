#include "OutputFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

namespace movarix {

namespace {

// Keeps SIGXFSZ, which the system sends to a thread that writes beyond the limit of file sizes, from this thread: its
// mask has it while the object lives, and one that came meanwhile is taken out. The host's handlers stay.
class FileSizeSignal {
public:
    FileSizeSignal() {
        sigemptyset(&m_set);
        sigaddset(&m_set, SIGXFSZ);
        sigset_t pending;
        m_pending = sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
        pthread_sigmask(SIG_BLOCK, &m_set, &m_mask);
    }
    ~FileSizeSignal() {
        constexpr timespec kNow{};
        if (!m_pending)
            while (sigtimedwait(&m_set, nullptr, &kNow) < 0 && errno == EINTR) {
            }
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
    }
    FileSizeSignal(const FileSizeSignal&) = delete;
    FileSizeSignal& operator=(const FileSizeSignal&) = delete;

private:
    sigset_t m_set;
    sigset_t m_mask;
    bool m_pending;    // the host has one waiting already: it stays
};

}    // namespace

OutputFile& OutputFile::operator=(OutputFile&& other) noexcept {
    if (this != &other) {
        Close();
        m_descriptor = std::exchange(other.m_descriptor, -1);
        m_error = other.m_error;
        m_made = other.m_made;
        m_written = other.m_written;
        m_place = other.m_place;
        m_bytes = other.m_bytes;
        m_path = std::move(other.m_path);
    }
    return *this;
}

int OutputFile::Open(const std::string& path, bool replace) {
    Close();
    constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;    // the last: a pipe without a reader fails
    m_descriptor = open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0666);
    m_made = m_descriptor >= 0;
    if (!m_made && errno == EEXIST && replace)
        m_descriptor = open(path.c_str(), kFlags);
    if (m_descriptor < 0)
        return m_error = errno;
    m_error = 0;
    m_written = false;
    m_place = m_bytes = 0;
    m_path = path;
    struct stat state {};
    if (fstat(m_descriptor, &state) != 0 || !S_ISREG(state.st_mode)) {
        m_made = false;
        Close();
        return m_error = EINVAL;
    }
    return 0;
}

int OutputFile::Write(const uint8_t* data, uint64_t size) {
    struct stat state {};
    if (m_error == 0 && !m_written && !m_made && ftruncate(m_descriptor, 0) != 0)
        m_error = errno;
    if (m_error == 0 && fstat(m_descriptor, &state) == 0 && state.st_nlink == 0)
        m_error = ENOENT;
    m_written = true;
    const FileSizeSignal noSignal;
    while (size > 0 && m_error == 0) {
        const ssize_t written = pwrite(m_descriptor, data, size, static_cast<off_t>(m_place));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            m_error = written < 0 ? errno : EIO;
            break;
        }
        data += written;
        size -= static_cast<uint64_t>(written);
        m_place += static_cast<uint64_t>(written);
        m_bytes = std::max(m_bytes, m_place);
    }
    return m_error;
}

int OutputFile::Seek(uint64_t place) {
    m_place = place;
    return m_error;
}

void OutputFile::Close() {
    if (m_descriptor < 0)
        return;
    if (close(std::exchange(m_descriptor, -1)) != 0 && m_error == 0 && errno != EINTR)
        m_error = errno;    // of file systems that write late
    if (m_made && !m_written)
        unlink(m_path.c_str());
}

}    // namespace movarix
