#include "platform/x11/SharedMemory.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xcb/shm.h>

#include "base/FailurePoint.h"
#include "base/Limits.h"

namespace corvane {

namespace {
bool CallFails() {
    return failure::MustFail(failure::Site::PlatformCall);
}
}    // namespace

bool SharedMemory::Make(Transport transport, size_t size) {
    Free();
    const size_t whole = size + limits::kPicturePadding;
    if (transport == Transport::Descriptor ? MakeDescriptor(whole)
                                           : transport == Transport::Segment && MakeSegment(whole)) {
        m_size = size;
        m_mapped = whole;
        return true;
    }
    Free();
    return false;
}

bool SharedMemory::MakeDescriptor(size_t size) {
    m_transport = Transport::Descriptor;
    m_id = CallFails() ? -1 : memfd_create("corvane-image", MFD_CLOEXEC);
    // Reserves the pages: with a file that has only a length, drawing would raise SIGBUS when memory runs out.
    if (m_id < 0 || CallFails() || posix_fallocate(m_id, 0, static_cast<off_t>(size)) != 0)
        return false;
    void* data = CallFails() ? MAP_FAILED : mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_id, 0);
    if (data == MAP_FAILED)
        return false;
    m_data = static_cast<uint8_t*>(data);
    return true;
}

bool SharedMemory::MakeSegment(size_t size) {
    m_transport = Transport::Segment;
    const int id = CallFails() ? -1 : shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (id < 0)
        return false;
    void* data = CallFails() ? MAP_FAILED : shmat(id, nullptr, 0);
    // Marked for removal at once, so that the system frees the segment in any case. Linux still lets the server attach
    // it.
    shmctl(id, IPC_RMID, nullptr);
    if (data == MAP_FAILED)
        return false;
    m_id = id;
    m_data = static_cast<uint8_t*>(data);
    return true;
}

void SharedMemory::Free() noexcept {
    if (m_transport == Transport::Descriptor) {
        if (m_data != nullptr)
            munmap(m_data, m_mapped);
        if (m_id >= 0)
            close(m_id);
    } else if (m_data != nullptr) {
        shmdt(m_data);
    }
    m_data = nullptr;
    m_size = m_mapped = 0;
    m_id = -1;
}

void SharedMemory::Trim(size_t size) noexcept {
    if (size >= m_size)
        return;
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t kept = (size + limits::kPicturePadding + page - 1) / page * page;
    // The mapping keeps its length, so that the server need not attach again; the pages are freed.
    if (kept < m_mapped)
        (void)madvise(m_data + kept, m_mapped - kept, MADV_REMOVE);
    m_size = size;
}

xcb_void_cookie_t SharedMemory::Send(xcb_connection_t* xcb, uint32_t segment, bool checked) {
    if (m_transport == Transport::Segment) {
        const auto id = static_cast<uint32_t>(m_id);
        const xcb_void_cookie_t cookie =
            checked ? xcb_shm_attach_checked(xcb, segment, id, 1) : xcb_shm_attach(xcb, segment, id, 1);
        xcb_flush(xcb);
        return cookie;
    }
    struct stat sent {};
    const int descriptor = std::exchange(m_id, -1);
    fstat(descriptor, &sent);
    const xcb_void_cookie_t cookie = checked ? xcb_shm_attach_fd_checked(xcb, segment, descriptor, 1)
                                             : xcb_shm_attach_fd(xcb, segment, descriptor, 1);
    xcb_flush(xcb);
    // xcb closes the descriptor after it has sent it, and where it knew that the connection is lost. It does not close
    // a descriptor whose sending broke the connection. Then no later one is sent, so a number that still is our file is
    // closed here.
    struct stat now {};
    if (xcb_connection_has_error(xcb) != 0 && fstat(descriptor, &now) == 0 && now.st_dev == sent.st_dev &&
        now.st_ino == sent.st_ino)
        close(descriptor);
    return cookie;
}

unsigned SharedMemory::Attach(xcb_connection_t* xcb, uint32_t segment) {
    return Send(xcb, segment, false).sequence;
}

xcb_void_cookie_t SharedMemory::AttachChecked(xcb_connection_t* xcb, uint32_t segment) {
    return Send(xcb, segment, true);
}

}    // namespace corvane
