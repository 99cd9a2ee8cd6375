#include "requestjournal.h"

#include <httplib.h>

namespace vn::devservice {

RequestJournal::RequestJournal(int limit)
    : m_limit(qMax(0, limit))
{}

void RequestJournal::record(const httplib::Request &request, const QString &service)
{
    RecordedRequest recorded;
    recorded.service = service;
    recorded.method = QByteArray::fromStdString(request.method);
    recorded.path = QByteArray::fromStdString(request.path);
    const auto question = request.target.find('?');
    if (question != std::string::npos) {
        recorded.query = QByteArray::fromStdString(request.target.substr(question + 1));
    }
    for (const auto &[name, value] : request.headers) {
        recorded.headers.insert(QByteArray::fromStdString(name).toLower(), QByteArray::fromStdString(value));
    }
    recorded.body = QByteArray::fromStdString(request.body);
    QMutexLocker locker(&m_mutex);
    m_requests.append(recorded);
    while (m_requests.size() > m_limit) {
        m_requests.removeFirst();
    }
}

void RequestJournal::setLimit(int requests)
{
    QMutexLocker locker(&m_mutex);
    m_limit = qMax(0, requests);
    while (m_requests.size() > m_limit) {
        m_requests.removeFirst();
    }
}

QList<RecordedRequest> RequestJournal::requests() const
{
    QMutexLocker locker(&m_mutex);
    return m_requests;
}

RecordedRequest RequestJournal::last() const
{
    QMutexLocker locker(&m_mutex);
    return m_requests.isEmpty() ? RecordedRequest() : m_requests.constLast();
}

int RequestJournal::size() const
{
    QMutexLocker locker(&m_mutex);
    return int(m_requests.size());
}

void RequestJournal::clear()
{
    QMutexLocker locker(&m_mutex);
    m_requests.clear();
}

} // namespace vn::devservice
