#include "platform/x11/WindowWatch.h"

#include <new>
#include <system_error>
#include <unordered_map>

#include "platform/x11/WatchState.h"

namespace corvane {

namespace {

class ClientWatch;

// The watches and the connection in use. Never destroyed, since clients may release watches after the end of main.
struct Registry {
    Mutex lock;
    std::unordered_map<uintptr_t, std::weak_ptr<ClientWatch>> watches GUARDED_BY(lock);
    std::weak_ptr<ConnectionLease> current GUARDED_BY(lock);
};
Registry& TheRegistry() {
    static auto& registry = *new Registry;
    return registry;
}

// The watch that clients hold. The event thread never holds one: its destructor may close the connection and join that
// thread, so it runs on a client's thread only.
class ClientWatch final : public WindowWatch {
public:
    ClientWatch(uintptr_t window, Purpose purpose, std::shared_ptr<ConnectionLease> lease)
        : m_window(window),
          m_lease(std::move(lease)),
          m_state(std::make_shared<WatchState>(static_cast<xcb_window_t>(window), purpose == Purpose::Draw)) {}

    ~ClientWatch() override {
        {
            Registry& registry = TheRegistry();
            MutexLock lock(registry.lock);
            const auto found = registry.watches.find(m_window);
            if (found != registry.watches.end() && found->second.expired())    // else the entry is of a later watch
                registry.watches.erase(found);
        }
        m_state->Leave();
        if (m_lease != nullptr)
            m_lease->connection->Poke();
    }

    void Start() {
        // Ids have 29 bits; a wider value is no window, and must not be cut to one.
        if (m_lease == nullptr || m_window > 0x1FFFFFFF)
            m_state->OnLost();
        else
            m_lease->connection->Join(m_state);
    }
    void WantDraw() {
        m_state->WantDraw();
        if (m_lease != nullptr)
            m_lease->connection->Poke();
    }
    const std::shared_ptr<WatchState>& State() const { return m_state; }
    std::shared_ptr<Connection> ServedBy() const { return m_lease != nullptr ? m_lease->connection : nullptr; }

    uintptr_t Window() const override { return m_window; }
    Life GetLife() const override { return m_state->Facts().life; }
    bool Viewable() const override { return m_state->Facts().viewable; }
    Size ClientSize() const override { return m_state->Facts().size; }
    std::optional<Rect> ScreenRect() const override { return m_state->Facts().outer; }
    uint32_t MonitorIndex() const override {
        const WindowFacts facts = m_state->Facts();
        return facts.outer ? m_lease->connection->Monitors().IndexOf(facts.root, *facts.outer) : 0;
    }
    Monitor GetMonitor() const override {
        const WindowFacts facts = m_state->Facts();
        return facts.outer ? m_lease->connection->Monitors().Of(facts.root, *facts.outer) : Monitor{};
    }
    std::optional<Beam> GetBeam() const override {
        const WindowFacts facts = m_state->Facts();
        if (!facts.outer)
            return std::nullopt;
        Connection& connection = *m_lease->connection;
        return connection.Monitors().BeamOf(connection, facts.root, *facts.outer);
    }
    bool ServerLost() const override {
        return GetLife() == Life::Dead && (m_lease == nullptr || m_lease->connection->Lost());
    }
    void AddListener(Listener* listener) override { m_state->Listeners().Add(listener); }
    void RemoveListener(Listener* listener) override { m_state->Listeners().Remove(listener); }

private:
    const uintptr_t m_window;
    const std::shared_ptr<ConnectionLease> m_lease;    // null where no connection could be started
    const std::shared_ptr<WatchState> m_state;
};

// The lease of the open connection, or of a new one. Null where no connection can be started.
std::shared_ptr<ConnectionLease> Lease(std::weak_ptr<ConnectionLease>& current) {
    std::shared_ptr<ConnectionLease> lease = current.lock();
    if (lease != nullptr && !lease->connection->Lost())
        return lease;
    lease = nullptr;
    std::shared_ptr<Connection> made;
    try {
        made = Connection::Make();
        lease = std::make_shared<ConnectionLease>(made);
    } catch (const std::system_error&) {
        return nullptr;
    } catch (...) {
        if (made != nullptr)
            made->Close();
        throw;
    }
    current = lease;
    return lease;
}

}    // namespace

std::shared_ptr<WindowWatch> WindowWatch::Open(uintptr_t window, Purpose purpose) {
    if (window == 0)
        return nullptr;
    // Destroyed after the lock is dropped, since the end of the last user takes the lock.
    std::shared_ptr<ConnectionLease> lease;
    std::shared_ptr<ClientWatch> watch;
    std::shared_ptr<ClientWatch> dead;
    Registry& registry = TheRegistry();
    MutexLock lock(registry.lock);
    if (const auto known = registry.watches.find(window); known != registry.watches.end())
        watch = known->second.lock();
    if (watch != nullptr && watch->GetLife() != Life::Dead) {
        lock.Unlock();
        if (purpose == Purpose::Draw)
            watch->WantDraw();
        return watch;
    }
    dead = std::move(watch);
    lease = Lease(registry.current);
    watch = std::make_shared<ClientWatch>(window, purpose, lease);
    watch->Start();
    registry.watches[window] = watch;
    lock.Unlock();
    return watch;
}

uint32_t OpenConnections() {
    return Connection::OpenCount();
}

std::shared_ptr<WatchState> StateOf(const WindowWatchPtr& watch) {
    const auto own = std::dynamic_pointer_cast<ClientWatch>(watch);
    return own != nullptr ? own->State() : nullptr;
}

std::shared_ptr<Connection> ConnectionOf(const WindowWatchPtr& watch) {
    const auto own = std::dynamic_pointer_cast<ClientWatch>(watch);
    return own != nullptr ? own->ServedBy() : nullptr;
}

}    // namespace corvane
