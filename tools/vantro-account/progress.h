#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QString>

#include <functional>

namespace vn {
class Request;
}

namespace vn::tools {

/// Waiting on the service, visibly: runs the event loop until a condition holds or a deadline
/// passes, and says meanwhile on standard error what it waits for.
///
/// On a terminal a spinner turns in front of the activity and the line is cleared afterwards;
/// otherwise (a log file, a pipe) the activity is written once as a plain line.
class Progress
{
public:
    /// Returns at once, printing nothing, when @p done already holds. Otherwise runs the event loop
    /// until @p done holds (true) or @p deadline expires (false, unless @p done holds by then).
    static bool waitUntil(const QString &activity, const std::function<bool()> &done,
                          QDeadlineTimer deadline = QDeadlineTimer(QDeadlineTimer::Forever));

    /// An account service's or a service's answer; responseCode 0 when nothing answered.
    struct Reply
    {
        int responseCode = 0;
        QByteArray body;
    };
    /// Waits, saying @p activity, until @p request (fresh from the account or a service) has
    /// finished. Its failures are the caller's to report, so the request logs none.
    static Reply runRequest(vn::Request *request, const QString &activity);
};

} // namespace vn::tools
