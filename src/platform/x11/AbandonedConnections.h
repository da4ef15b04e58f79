// Connections that were closed while their thread waited for a server that does not answer. Private to x11/.
//
// Nothing wakes a thread in the connecting call: it ends by itself when that returns, and is joined after. While a
// server hangs there is one such thread for each display, however often clients try: the next connection to the same
// display takes it over.
#pragma once

#include <memory>
#include <string>

#include "base/Mutex.h"

namespace corvane {

class Connection;

class AbandonedConnections {
public:
    // Those of the process. Never destroyed: a thread may outlive main. Where main ends first, threads that are about
    // to end are joined then, and one that a hanging server holds is left.
    static AbandonedConnections& Instance();

    void Add(std::shared_ptr<Connection> closed) noexcept;
    // Joins the threads that have ended. One that still tries to reach `display` is as good as a new one, and comes
    // back.
    std::shared_ptr<Connection> Reclaim(const std::string& display) noexcept;
    // Joins the threads that have ended; true when some has not.
    bool Reap() noexcept;

private:
    std::shared_ptr<Connection> Sweep(const std::string* display) noexcept;

    Mutex m_lock;                                              // taken before a connection's
    std::shared_ptr<Connection> m_first GUARDED_BY(m_lock);    // a list through Connection::m_nextAbandoned
};

}    // namespace corvane
