#include "base/Thread.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>

#include "base/FailurePoint.h"

namespace corvane {

namespace {
thread_local const void* currentOwner = nullptr;
thread_local const Thread::ScopedOwner* innermost = nullptr;
}    // namespace

Thread::Thread(const char* name, const void* owner, std::function<void()> body) {
    if (failure::MustFail(failure::Site::ThreadStart))
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGPROF})
        sigdelset(&all, own);    // faults of the thread itself: the host's crash handler and profiler still get them
    pthread_sigmask(SIG_SETMASK, &all, &before);    // inherited by the new thread
    try {
        m_thread = std::thread([name, owner, body = std::move(body)] {
            currentOwner = owner;
            pthread_setname_np(pthread_self(), name);
            body();
        });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

const void* Thread::CurrentOwner() noexcept {
    return currentOwner != nullptr || innermost == nullptr ? currentOwner : innermost->m_owner;
}

const void* Thread::ThreadOwner() noexcept {
    return currentOwner;
}

bool Thread::WorksFor(const void* owner) noexcept {
    for (const ScopedOwner* scope = innermost; scope != nullptr; scope = scope->m_outer) {
        if (scope->m_owner == owner)
            return true;
    }
    return owner != nullptr && currentOwner == owner;
}

const void* Thread::PluginCode() noexcept {
    static constexpr char kOwner = 0;
    return &kOwner;
}

Thread::ScopedOwner::ScopedOwner(const void* owner) noexcept : m_owner(owner), m_outer(innermost) {
    innermost = this;
}

Thread::ScopedOwner::~ScopedOwner() {
    innermost = m_outer;
}

Thread::AdoptedThread::AdoptedThread(const void* owner) noexcept : m_before(currentOwner) {
    currentOwner = owner;
}

Thread::AdoptedThread::~AdoptedThread() {
    currentOwner = m_before;
}

}    // namespace corvane
