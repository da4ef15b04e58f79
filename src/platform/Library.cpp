#include "platform/Library.h"

#include <dlfcn.h>

#include "base/FailurePoint.h"

namespace corvane {

namespace {

bool MustFail() {
    return failure::MustFail(failure::Site::PlatformCall);
}

// The loader keeps the text of a failure for the thread; the host shall not find ours there.
void* OrForget(void* found) {
    if (found == nullptr)
        (void)dlerror();
    return found;
}

}    // namespace

bool Library::Open(const char* name) noexcept {
    Close();
    m_handle = MustFail() ? nullptr : OrForget(dlopen(name, RTLD_NOW | RTLD_LOCAL));
    return m_handle != nullptr;
}

bool Library::OpenLoaded(const char* name) noexcept {
    Close();
    m_handle = MustFail() ? nullptr : OrForget(dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD));
    return m_handle != nullptr;
}

void* Library::FindAddress(const char* name) const noexcept {
    return m_handle == nullptr || MustFail() ? nullptr : OrForget(dlsym(m_handle, name));
}

// A library that the loader cannot close stays loaded.
void Library::Close() noexcept {
    if (m_handle != nullptr && !MustFail())
        (void)dlclose(m_handle);
    m_handle = nullptr;
}

}    // namespace corvane
