#pragma once

#include <Vantro/request.h>

#include <QPointer>
#include <QUrl>

#include <functional>
#include <vector>

class QObject;

namespace vn::account {

/// The periodic refresh of a connected account: a few GETs of service paths, each run when it is
/// due and its condition holds, on a 200 ms coarse tick of its owner's.
///
/// Each task's handler reads the finished request and returns the milliseconds (on the time-scaled
/// clock) until the task runs again. Answers to requests made before the last forget() are not
/// handed to a handler: they belong to a login that has ended. Requests still under way when the
/// schedule goes are aborted, so that no answer of a gone account reaches the service's state.
class RefreshSchedule
{
public:
    using Condition = std::function<bool()>;
    using Handler = std::function<qint64(Request *)>;
    using Sender = std::function<Request *(const QUrl &path)>;

    static constexpr int TickInterval = 200;

    /// @p owner receives the timer events.
    explicit RefreshSchedule(QObject *owner);
    ~RefreshSchedule();

    void addTask(const QUrl &path, const Condition &condition, const Handler &handler);

    /// Makes every task due at the next tick and starts the tick, unless it runs.
    void start();
    void stop();

    /// Whether a tick at @p now has anything to do: most ticks of a connected account do not.
    bool isDue(qint64 now) const { return now > m_nextDue; }
    /// Starts every task that is due at @p now and whose condition holds, through @p send.
    void run(qint64 now, const Sender &send);
    /// Hands the answer to @p request to its task's handler and schedules the task again.
    void finish(Request *request);

    /// Requests made from now on belong to a new login; answers to earlier ones are ignored.
    void forget();
    void tag(Request *request) const;
    bool isCurrent(const Request *request) const;

private:
    struct Task
    {
        QUrl path;
        Condition condition;
        Handler handler;
        /// Milliseconds since the epoch after which it may run again.
        qint64 due = 0;
        /// The request in flight, null when idle.
        QPointer<Request> request;
    };

    void updateNextDue();

    QObject *const m_owner;
    std::vector<Task> m_tasks;
    int m_timerId = 0;
    qint64 m_nextDue = 0;
    int m_generation = 0;
};

} // namespace vn::account
