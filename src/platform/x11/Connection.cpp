#include "platform/x11/Connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
#include <xcb/randr.h>
#include <xcb/xcbext.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "base/FailurePoint.h"
#include "platform/x11/BeamWatch.h"

namespace corvane {

namespace {

std::atomic<uint32_t> openConnections{0};

// Closed connections whose thread still waits in the connecting call. Never destroyed: a thread may outlive main.
struct Abandoned {
    Mutex lock;
    std::shared_ptr<Connection> first GUARDED_BY(lock);
};
Abandoned& TheAbandoned() {
    static auto& list = *new Abandoned;
    return list;
}

// At the end of the process: threads that are about to end are joined; one that a hanging server holds is left.
struct LastReaper {
    ~LastReaper() {
        constexpr timespec kPause{0, 1'000'000};
        for (int i = 0; i < 100 && Connection::ReapAbandoned(); ++i)
            nanosleep(&kPause, nullptr);
    }
};

std::string DisplayName() {
    const char* name = std::getenv("DISPLAY");
    return name != nullptr ? name : "";
}

int MakeWake() {
    const int wake = failure::MustFail(failure::Site::PlatformCall) ? -1 : eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0)
        throw std::system_error(std::make_error_code(std::errc::too_many_files_open));
    return wake;
}

int64_t Gap(int64_t fromA, int64_t toA, int64_t fromB, int64_t toB) {
    return std::max<int64_t>({0, fromB - toA, fromA - toB});
}

}    // namespace

uint32_t Connection::OpenCount() {
    return openConnections.load();
}

// ---- Any thread

Connection::Connection() : m_display(DisplayName()), m_wake(MakeWake()) {}

Connection::~Connection() {
    close(m_wake);
}

bool Connection::ReapAbandoned() noexcept {
    (void)ReapOrAdopt(nullptr);
    MutexLock lock(TheAbandoned().lock);
    return TheAbandoned().first != nullptr;
}

std::shared_ptr<Connection> Connection::Make() {
    static const LastReaper reaper;
    if (std::shared_ptr<Connection> adopted = ReapOrAdopt(DisplayName().c_str()))
        return adopted;
    const std::shared_ptr<Connection> made(new Connection);
    made->m_thread = Thread("corvane-x11", nullptr, [made] { made->Run(); });
    return made;
}

// Joins the abandoned threads that have ended. One that still tries to reach the same display is as good as a new one:
// while a server hangs there is one such thread, however often clients try.
std::shared_ptr<Connection> Connection::ReapOrAdopt(const char* display) {
    Abandoned& list = TheAbandoned();
    std::shared_ptr<Connection> finished;    // freed without the lock
    std::shared_ptr<Connection> adopted;
    MutexLock lock(list.lock);
    for (std::shared_ptr<Connection>* place = &list.first; *place != nullptr;) {
        const bool ended = (*place)->m_finished.load(std::memory_order_acquire);
        const bool adopts =
            !ended && adopted == nullptr && display != nullptr && (*place)->m_display == display && (*place)->Revive();
        if (!ended && !adopts) {
            place = &(*place)->m_nextAbandoned;
            continue;
        }
        std::shared_ptr<Connection> one = std::move(*place);
        *place = std::move(one->m_nextAbandoned);
        if (adopts) {
            adopted = std::move(one);
            continue;
        }
        one->m_thread.Join();
        one->m_nextAbandoned = std::move(finished);
        finished = std::move(one);
    }
    lock.Unlock();
    return adopted;
}

bool Connection::Revive() {
    MutexLock lock(m_lock);
    if (m_phase != Phase::Connecting)
        return false;
    m_ending = false;
    return true;
}

void Connection::Close() noexcept {
    bool connecting;
    {
        MutexLock lock(m_lock);
        m_ending = true;
        connecting = m_phase == Phase::Connecting;
        // Whatever the thread waits for ends with this; what was sent before still reaches the server.
        if (!connecting && m_xcb != nullptr)
            shutdown(xcb_get_file_descriptor(m_xcb), SHUT_RDWR);
    }
    Uncount();
    Poke();
    if (!connecting) {
        m_thread.Join();
        xcb_disconnect(std::exchange(m_xcb, nullptr));
        return;
    }
    // Nothing wakes a thread that waits in the connecting call for a server that does not answer. It ends by itself
    // when that returns, and is joined after.
    Abandoned& list = TheAbandoned();
    MutexLock lock(list.lock);
    m_nextAbandoned = std::move(list.first);
    list.first = shared_from_this();
}

bool Connection::Lost() const {
    MutexLock lock(m_lock);
    return m_phase == Phase::Lost;
}

void Connection::Join(std::shared_ptr<EventClient> client) {
    {
        MutexLock lock(m_lock);
        if (m_phase != Phase::Lost) {
            m_arrivals.push_back(std::move(client));
            client = nullptr;
        }
    }
    if (client != nullptr)
        client->OnLost();
    else
        Poke();
}

void Connection::Poke() noexcept {
    const uint64_t one = 1;
    (void)!write(m_wake, &one, sizeof one);    // fails only when the counter is full, and then it wakes as well
}

// The place in the list of `monitors` of the one that shows most of `rect`, else of the nearest.
uint32_t Connection::NearestMonitor(const std::vector<Monitor>& monitors, const Rect& rect) {
    uint32_t best = 0;
    int64_t bestOverlap = -1;
    int64_t bestGap = 0;
    for (size_t i = 0; i < monitors.size(); ++i) {
        const Rect& monitor = monitors[i].place;
        const Rect both = rect.Intersected(monitor);
        const int64_t overlap = both.Empty() ? 0 : both.Width() * both.Height();
        const int64_t x = Gap(rect.left, rect.right, monitor.left, monitor.right);
        const int64_t y = Gap(rect.top, rect.bottom, monitor.top, monitor.bottom);
        const int64_t gap = x * x + y * y;
        if (overlap > bestOverlap || (overlap == bestOverlap && gap < bestGap)) {
            best = static_cast<uint32_t>(i);
            bestOverlap = overlap;
            bestGap = gap;
        }
    }
    return best;
}

uint32_t Connection::MonitorIndex(xcb_window_t root, const Rect& rect) const {
    MutexLock lock(m_lock);
    for (const Screen& screen : m_screens)
        if (screen.root == root)
            return NearestMonitor(screen.monitors, rect);
    return 0;
}

Monitor Connection::MonitorOf(xcb_window_t root, const Rect& rect) const {
    MutexLock lock(m_lock);
    for (const Screen& screen : m_screens)
        if (screen.root == root && !screen.monitors.empty())
            return screen.monitors[NearestMonitor(screen.monitors, rect)];
    return {};
}

std::optional<Beam> Connection::BeamOf(xcb_window_t root, const Rect& rect) {
    if (m_server.presentOpcode == 0 || m_server.randrFirstEvent == 0)
        return std::nullopt;
    std::shared_ptr<BeamWatch> beams;
    bool fresh;
    {
        MutexLock lock(m_lock);
        if (m_phase != Phase::Open)
            return std::nullopt;
        fresh = m_beams == nullptr;
        if (fresh)
            m_beams = std::make_shared<BeamWatch>();
        beams = m_beams;
    }
    if (fresh)
        Join(beams);
    bool stale = false;
    const std::optional<Beam> beam = beams->Of(root, MonitorOf(root, rect).place, &stale);
    if (stale)
        Poke();
    return beam;
}

void Connection::Uncount() noexcept {
    if (m_counted.exchange(false))
        --openConnections;
}

// ---- The event thread

void Connection::Run() noexcept {
    if (OpenDisplay())
        Serve();
    m_finished.store(true, std::memory_order_release);
}

bool Connection::OpenDisplay() {
    int screen = 0;
    const bool tries = !m_display.empty() && !failure::MustFail(failure::Site::PlatformCall);
    xcb_connection_t* xcb = tries ? xcb_connect(m_display.c_str(), &screen) : nullptr;
    const bool refused = xcb == nullptr || xcb_connection_has_error(xcb) != 0;
    {
        MutexLock lock(m_lock);
        if (!refused && !m_ending) {
            m_xcb = xcb;
            m_phase = Phase::Open;
            m_counted = true;
            ++openConnections;
            return true;
        }
        m_phase = Phase::Lost;    // in the same breath: whoever revives it from here on would get a dead one
    }
    if (xcb != nullptr)
        xcb_disconnect(xcb);
    Lose();
    return false;
}

void Connection::Serve() {
    m_server = AskServer(m_xcb);
    Guarded(nullptr, [this] { AskMonitors(); });
    for (;;) {
        {
            MutexLock lock(m_lock);
            if (m_ending)
                break;
        }
        Admit();
        Release();
        Drain();
        if (xcb_connection_has_error(m_xcb) != 0) {
            Lose();
            break;
        }
        Sleep();
    }
    m_asked.clear();
    m_clients.clear();
}

void Connection::Sleep() {
    const short room = m_awaitsRoom.load() || m_unflushed ? POLLOUT : 0;
    pollfd sources[] = {{xcb_get_file_descriptor(m_xcb), static_cast<short>(POLLIN | room), 0}, {m_wake, POLLIN, 0}};
    poll(sources, 2, -1);
    uint64_t pokes;
    if (sources[1].revents != 0)
        (void)!read(m_wake, &pokes, sizeof pokes);    // before the looking: a poke that comes later wakes once more
    if ((sources[0].revents & room) == 0)
        return;
    m_awaitsRoom.store(false);    // whoever asks from here on is told later
    Admit();                      // whoever asked may have joined since
    for (const std::shared_ptr<EventClient>& client : m_clients)
        if (!client->Left())
            Guarded(client.get(), [&] { client->OnRoom(); });
}

bool Connection::Flush() noexcept {
    MutexLock lock(m_roomLock);
    return HasRoom(0) && xcb_flush(m_xcb) > 0;
}

bool Connection::HasRoom(int64_t limit) const {
    constexpr int64_t kMillisecond = 1'000'000;
    pollfd socket{xcb_get_file_descriptor(m_xcb), POLLOUT, 0};
    return poll(&socket, 1, static_cast<int>((limit + kMillisecond - 1) / kMillisecond)) > 0;    // an error too: sending to nobody does not block
}

template <typename Call>
void Connection::Guarded(EventClient* client, Call call) noexcept {
    try {
        call();
    } catch (const std::exception&) {    // no memory: this one is lost, the others live on
        if (client == nullptr)
            return;
        client->OnLost();
        client->Leave();
    }
}

void Connection::Admit() {
    std::vector<std::shared_ptr<EventClient>> arrivals;
    {
        MutexLock lock(m_lock);
        arrivals.swap(m_arrivals);
    }
    for (std::shared_ptr<EventClient>& client : arrivals) {
        Guarded(client.get(), [&] {
            m_clients.push_back(client);
            client->OnJoin(*this);
        });
    }
}

void Connection::Release() {
    std::erase_if(m_clients, [&](const std::shared_ptr<EventClient>& client) {
        if (!client->Left())
            return false;
        Guarded(client.get(), [&] { client->OnLeave(*this); });
        return true;
    });
}

// Reads once, since what comes later wakes us again; then hands out and sends until nothing is left, so that nothing
// waits in xcb's queues while we sleep: sending may read as well, and so does the look for an answer.
void Connection::Drain() {
    TakeEvents(xcb_poll_for_event(m_xcb));
    const auto takeMore = [this] { return TakeEvents(xcb_poll_for_queued_event(m_xcb)) || TakeReplies(); };
    do {
        while (takeMore()) {
        }
        for (const std::shared_ptr<EventClient>& client : m_clients)
            Guarded(client.get(), [&] { client->OnTurn(*this); });
        m_unflushed = !Flush();
    } while (takeMore());
}

// `first` and all that are queued behind it; false when it is null.
bool Connection::TakeEvents(xcb_generic_event_t* first) {
    for (ReplyPtr<xcb_generic_event_t> event{first}; event; event.reset(xcb_poll_for_queued_event(m_xcb))) {
        Admit();    // the event may answer what somebody sent right after joining
        Dispatch(*event);
    }
    return first != nullptr;
}

void Connection::Dispatch(const xcb_generic_event_t& event) {
    const uint8_t code = event.response_type & 0x7F;
    if (m_server.randrFirstEvent != 0 && (code == m_server.randrFirstEvent + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                                          code == m_server.randrFirstEvent + XCB_RANDR_NOTIFY)) {
        Guarded(nullptr, [this] { AskMonitors(); });
        std::shared_ptr<BeamWatch> beams;
        {
            MutexLock lock(m_lock);
            beams = m_beams;
        }
        if (beams != nullptr)
            beams->OnModesChanged();
        return;
    }
    for (const std::shared_ptr<EventClient>& client : m_clients)
        if (!client->Left())
            Guarded(client.get(), [&] { client->OnEvent(*this, event); });
    if (code == XCB_DESTROY_NOTIFY)
        Forget(reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window);
}

bool Connection::TakeReplies() {
    bool progress = false;
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    while (!m_asked.empty() && xcb_poll_for_reply(m_xcb, m_asked.front().sequence, &reply, &error) != 0) {
        ReplyPtr<void> owned(reply);
        std::free(std::exchange(error, nullptr));
        if (xcb_connection_has_error(m_xcb) != 0)
            return false;    // says nothing of the window
        const Asked asked = std::move(m_asked.front());
        m_asked.pop_front();
        progress = true;
        if (asked.client == nullptr || !asked.client->Left())
            Guarded(asked.client.get(), [&] { asked.handler(owned.release()); });
    }
    return progress;
}

void Connection::Lose() noexcept {
    std::vector<std::shared_ptr<EventClient>> arrivals;
    {
        MutexLock lock(m_lock);
        m_phase = Phase::Lost;
        arrivals.swap(m_arrivals);
    }
    Uncount();
    for (const auto* clients : {&m_clients, &arrivals})
        for (const std::shared_ptr<EventClient>& client : *clients)
            if (!client->Left())
                client->OnLost();
}

// ---- Selections and monitors, on the event thread

void Connection::SendMask(xcb_window_t window, const Selection& selection) {
    uint32_t mask = 0;
    if (selection.users > 0)
        mask |= XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    if (selection.exposures > 0)
        mask |= XCB_EVENT_MASK_EXPOSURE;
    xcb_change_window_attributes(m_xcb, window, XCB_CW_EVENT_MASK, &mask);
}

void Connection::Select(xcb_window_t window, bool exposure) {
    Selection& selection = m_selected[window];
    ++selection.users;
    selection.exposures += exposure ? 1 : 0;
    if (selection.users == 1 || (exposure && selection.exposures == 1))
        SendMask(window, selection);
}

void Connection::Unselect(xcb_window_t window, bool exposure) {
    const auto found = m_selected.find(window);
    if (found == m_selected.end())
        return;
    Selection& selection = found->second;
    --selection.users;
    selection.exposures -= exposure ? 1 : 0;
    if (selection.users == 0 || (exposure && selection.exposures == 0))
        SendMask(window, selection);
    if (selection.users == 0)
        m_selected.erase(found);
}

void Connection::AskMonitors() {
    if (m_server.randrFirstEvent == 0)
        return;
    for (xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(m_xcb)); screen.rem > 0;
         xcb_screen_next(&screen))
        Ask<xcb_randr_get_monitors_reply_t>(
            xcb_randr_get_monitors(m_xcb, screen.data->root, 1), nullptr,
            [this, root = screen.data->root](ReplyPtr<xcb_randr_get_monitors_reply_t> reply) {
                StoreMonitors(root, reply.get());
            });
}

void Connection::StoreMonitors(xcb_window_t root, const xcb_randr_get_monitors_reply_t* reply) {
    if (reply == nullptr)
        return;
    Screen screen{root, {}};
    for (xcb_randr_monitor_info_iterator_t i = xcb_randr_get_monitors_monitors_iterator(reply); i.rem > 0;
         xcb_randr_monitor_info_next(&i)) {
        const xcb_randr_monitor_info_t& info = *i.data;
        // Names are unique on a screen; places and order change with every other monitor.
        screen.monitors.push_back(
            {uint64_t{root} << 32 | info.name, {info.x, info.y, info.x + info.width, info.y + info.height}});
    }
    MutexLock lock(m_lock);
    for (Screen& known : m_screens) {
        if (known.root == root) {
            known = std::move(screen);
            return;
        }
    }
    m_screens.push_back(std::move(screen));
}

}    // namespace corvane
