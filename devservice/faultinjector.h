#pragma once

#include "apiresponse.h"
#include "fault.h"

#include <QList>
#include <QMutex>

#include <atomic>
#include <optional>

namespace vn::devservice {

/// The faults waiting for the account service's next requests, and the admin route
/// "admin/faults" through which a client outside the process adds, lists and clears them. Every
/// member is safe to call from any thread.
class FaultInjector
{
public:
    /// Adds @p fault with its path's leading "/" dropped and its method in upper case; an invalid
    /// fault is ignored.
    void add(const Fault &fault);
    void clear();
    /// The faults still pending, with their remaining counts, in the order they were added.
    QList<Fault> pending() const;

    /// The first pending fault for this request, counted down (and gone at zero); none when no
    /// fault matches, or when the matching one still lets this request pass (its skip count).
    std::optional<Fault> take(const QByteArray &method, const QString &path);
    /// Waits out @p fault's delay, in short steps so that interrupt() ends it early.
    void wait(const Fault &fault) const;
    /// Ends every wait, and makes later ones return at once until resume(): a stopping service
    /// does not sit out a long delay.
    void interrupt();
    void resume();
    /// What the request is answered with under @p fault (which does not drop the connection):
    /// the injected status, or @p serve's answer, with the body replaced, its signatures broken or
    /// padded when the fault says so.
    template<typename Serve>
    static ApiResponse answer(const Fault &fault, const Serve &serve)
    {
        return applied(fault, fault.status != 0 ? ApiResponse() : serve());
    }

    /// Serves "admin/faults": GET lists the pending faults, POST adds one fault object or an array
    /// of them (all or none), DELETE clears them. Only loopback peers may use it.
    ApiResponse serveAdmin(const QByteArray &method, const QByteArray &body, const std::string &peerAddress);

private:
    static ApiResponse applied(const Fault &fault, const ApiResponse &served);
    ApiResponse listed(int status) const;

    mutable QMutex m_mutex;
    QList<Fault> m_faults;
    std::atomic<bool> m_interrupted{false};
};

} // namespace vn::devservice
