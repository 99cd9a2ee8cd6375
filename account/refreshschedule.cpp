#include "refreshschedule_p.h"

#include "timescale_p.h"

#include <QObject>

#include <limits>

namespace vn::account {

namespace {

const char TaskIndexProperty[] = "taskIndex";
const char GenerationProperty[] = "vantroAccountGeneration";

} // namespace

RefreshSchedule::RefreshSchedule(QObject *owner)
    : m_owner(owner)
{}

RefreshSchedule::~RefreshSchedule()
{
    for (Task &task : m_tasks) {
        if (task.request) {
            QObject::disconnect(task.request, nullptr, m_owner, nullptr);
            task.request->abort();
        }
    }
}

void RefreshSchedule::addTask(const QUrl &path, const Condition &condition, const Handler &handler)
{
    m_tasks.push_back({path, condition, handler, 0, nullptr});
}

void RefreshSchedule::start()
{
    for (Task &task : m_tasks) {
        task.due = 0;
    }
    m_nextDue = 0;
    if (m_timerId == 0) {
        m_timerId = m_owner->startTimer(TimeScale::interval(TickInterval), Qt::CoarseTimer);
    }
}

void RefreshSchedule::stop()
{
    if (m_timerId != 0) {
        m_owner->killTimer(m_timerId);
        m_timerId = 0;
    }
}

void RefreshSchedule::run(qint64 now, const Sender &send)
{
    for (int index = 0; index < int(m_tasks.size()); ++index) {
        Task &task = m_tasks[index];
        if (task.request || !(task.due < now) || !task.condition()) {
            continue;
        }
        task.request = send(task.path);
        task.request->setProperty(TaskIndexProperty, index);
        tag(task.request);
    }
    updateNextDue();
}

void RefreshSchedule::finish(Request *request)
{
    const int index = request->property(TaskIndexProperty).toInt();
    if (index < 0 || index >= int(m_tasks.size()) || m_tasks[index].request != request) {
        return;
    }
    Task &task = m_tasks[index];
    const qint64 delay = isCurrent(request) ? task.handler(request) : 0;
    task.due = TimeScale::now() + TimeScale::delay(delay);
    task.request = nullptr;
    updateNextDue();
}

void RefreshSchedule::forget()
{
    ++m_generation;
}

void RefreshSchedule::tag(Request *request) const
{
    request->setProperty(GenerationProperty, m_generation);
}

bool RefreshSchedule::isCurrent(const Request *request) const
{
    return request->property(GenerationProperty).toInt() == m_generation;
}

void RefreshSchedule::updateNextDue()
{
    m_nextDue = std::numeric_limits<qint64>::max();
    for (const Task &task : m_tasks) {
        if (!task.request) {
            m_nextDue = qMin(m_nextDue, task.due);
        }
    }
}

} // namespace vn::account
