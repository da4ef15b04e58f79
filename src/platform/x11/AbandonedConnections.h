// Connections that were closed while their thread waited for a server that does not answer. Private to x11/.
//
// Nothing wakes a thread that is inside the connecting call: it ends when that call returns, and is joined later. While
// a server hangs there is one such thread for each display, however often clients try, since the next connection to the
// same display takes the thread over.
#pragma once

#include <memory>
#include <string>

#include "base/Mutex.h"

namespace corvane {

class Connection;

class AbandonedConnections {
public:
    // The one object of the process. It is never destroyed, since a thread may outlive main. At the end of main threads
    // that are about to end are joined, and a thread that waits for a hanging server is left.
    static AbandonedConnections& Instance();

    void Add(std::shared_ptr<Connection> closed) noexcept;
    // Joins the threads that have ended. Returns a connection that is still connecting to `display`, for another use.
    std::shared_ptr<Connection> Reclaim(const std::string& display) noexcept;
    // Joins the threads that have ended; true when a thread is left.
    bool Reap() noexcept;

private:
    std::shared_ptr<Connection> Sweep(const std::string* display) noexcept;

    Mutex m_lock;                                              // taken before the lock of a connection
    std::shared_ptr<Connection> m_first GUARDED_BY(m_lock);    // a list through Connection::m_nextAbandoned
};

}    // namespace corvane
