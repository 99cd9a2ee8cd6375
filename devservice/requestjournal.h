#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QString>

#include <limits>

namespace httplib {
struct Request;
} // namespace httplib

namespace vn::devservice {

/// One request as it arrived at a server of the service or of a test.
struct RecordedRequest
{
    QByteArray method;
    /// The full path, base included, without the query.
    QByteArray path;
    /// Raw, without the "?".
    QByteArray query;
    /// Header names in lower case.
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;
    /// The name of the played service that received it; empty for the account service.
    QString service;
};

/// The last requests a server received, oldest first, for tests to read back. Servers record from
/// their own threads; every member is safe to call from any thread.
class RequestJournal
{
public:
    static constexpr int DefaultLimit = 1000;
    static constexpr int Unlimited = std::numeric_limits<int>::max();

    explicit RequestJournal(int limit = DefaultLimit);

    void record(const httplib::Request &request, const QString &service = QString());
    /// Keeps at most @p requests (0: none), dropping the oldest.
    void setLimit(int requests);

    QList<RecordedRequest> requests() const;
    /// The newest request; an empty one when there is none.
    RecordedRequest last() const;
    int size() const;
    void clear();

private:
    Q_DISABLE_COPY(RequestJournal)
    mutable QMutex m_mutex;
    QList<RecordedRequest> m_requests;
    int m_limit;
};

} // namespace vn::devservice
