#pragma once

#include <QDeadlineTimer>
#include <QString>

#include <functional>

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
};

} // namespace vn::tools
