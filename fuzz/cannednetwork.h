#pragma once

// Answers from the fuzz input for the library's requests, in process and without a socket, so that
// a target drives the public classes through their real request objects at thousands of inputs a
// second.

#include "fuzzsupport.h"

#include <QAbstractNetworkCache>
#include <QBuffer>
#include <QCoreApplication>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <cstring>

namespace vn::fuzz {

/// One answer of the service: an HTTP status and a body, or no HTTP answer at all (status 0, as
/// when the connection drops).
struct CannedAnswer
{
    int status = 0;
    QByteArray body;
};

/// Reads up to @p most answers from a fuzz input: each is a status line ("200") and the body after
/// it, and a line "--" separates one answer from the next; the last answer takes the rest of the
/// input whole. A status line that is not a status from 100 to 599 gives an answer without one.
inline QList<CannedAnswer> cannedAnswers(const QByteArray &input, int most)
{
    static const QByteArray separator = QByteArrayLiteral("\n--\n");
    QList<CannedAnswer> answers;
    int from = 0;
    while (from <= input.size() && answers.size() < most) {
        int end = answers.size() + 1 < most ? int(input.indexOf(separator, from)) : -1;
        if (end < 0) {
            end = int(input.size());
        }
        const QByteArray piece = input.mid(from, end - from);
        int newline = int(piece.indexOf('\n'));
        if (newline < 0) {
            newline = int(piece.size());
        }
        bool number = false;
        const int status = piece.left(newline).trimmed().toInt(&number);
        CannedAnswer answer;
        answer.status = number && status >= 100 && status <= 599 ? status : 0;
        answer.body = piece.mid(newline + 1);
        answers.append(answer);
        from = end + int(separator.size());
    }
    return answers;
}

/// A reply that hands over a canned answer from the event loop, the way a network reply arrives:
/// the header first, then the body, then the end. Statuses from 400 up come with the error Qt
/// reports for them; an answer without a status ends with a dropped connection.
class CannedReply : public QNetworkReply
{
public:
    CannedReply(QNetworkAccessManager::Operation operation, const QNetworkRequest &request,
                const CannedAnswer &answer, QObject *parent)
        : QNetworkReply(parent)
        , m_body(answer.status > 0 ? answer.body : QByteArray())
    {
        setOperation(operation);
        setRequest(request);
        setUrl(request.url());
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        if (answer.status > 0) {
            setAttribute(QNetworkRequest::HttpStatusCodeAttribute, answer.status);
            setHeader(QNetworkRequest::ContentLengthHeader, m_body.size());
            if (answer.status >= 400) {
                setError(answer.status >= 500 ? UnknownServerError : UnknownContentError,
                         QStringLiteral("HTTP %1").arg(answer.status));
            }
        } else {
            setError(RemoteHostClosedError, QStringLiteral("Connection closed"));
        }
        QMetaObject::invokeMethod(
            this, [this] { deliver(); }, Qt::QueuedConnection);
    }

    void abort() override
    {
        m_aborted = true;
        m_body.clear();
    }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override
    {
        return m_body.size() - m_read + QNetworkReply::bytesAvailable();
    }

protected:
    qint64 readData(char *data, qint64 maximum) override
    {
        const qint64 count = qMin(maximum, qint64(m_body.size()) - m_read);
        if (count <= 0) {
            return isFinished() ? -1 : 0;
        }
        std::memcpy(data, m_body.constData() + m_read, size_t(count));
        m_read += count;
        return count;
    }

private:
    void deliver()
    {
        if (m_aborted) {
            return;
        }
        Q_EMIT metaDataChanged();
        if (!m_body.isEmpty()) {
            Q_EMIT readyRead();
        }
        setFinished(true);
        Q_EMIT finished();
    }

    QByteArray m_body;
    qint64 m_read = 0;
    bool m_aborted = false;
};

/// A network access manager that answers each request with the next canned answer (or with none
/// once they are used up) and keeps the bodies it was sent.
class CannedNetwork : public QNetworkAccessManager
{
public:
    void setAnswers(const QList<CannedAnswer> &answers)
    {
        m_answers = answers;
        m_sent.clear();
    }
    /// The bodies of the requests made since setAnswers(), in order.
    const QList<QByteArray> &sent() const { return m_sent; }

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *outgoingData) override
    {
        m_sent.append(outgoingData ? outgoingData->readAll() : QByteArray());
        const CannedAnswer answer = m_answers.isEmpty() ? CannedAnswer() : m_answers.takeFirst();
        return new CannedReply(operation, request, answer, this);
    }

private:
    QList<CannedAnswer> m_answers;
    QList<QByteArray> m_sent;
};

/// A network cache that holds one fresh answer for every URL. Given to a network access manager
/// that the library does not let anyone replace (the shared one), it answers the library's GETs
/// as Qt serves any fresh cached response: without contacting the host. Only answers with an HTTP
/// status can come from a cache, and Qt never finishes a cached answer without a body: an empty
/// body is handed over as one space, which reads as the same empty JSON document.
class CannedCache : public QAbstractNetworkCache
{
public:
    void setAnswer(const CannedAnswer &answer)
    {
        m_answer = answer;
        if (m_answer.body.isEmpty()) {
            m_answer.body = QByteArrayLiteral(" ");
        }
    }
    /// How many answers were handed out.
    int reads() const { return m_reads; }

    QNetworkCacheMetaData metaData(const QUrl &url) override
    {
        QNetworkCacheMetaData data;
        data.setUrl(url);
        data.setSaveToDisk(true);
        data.setExpirationDate(QDateTime::currentDateTimeUtc().addDays(1));
        data.setAttributes({{QNetworkRequest::HttpStatusCodeAttribute, m_answer.status}});
        data.setRawHeaders({{QByteArrayLiteral("Content-Length"), QByteArray::number(m_answer.body.size())}});
        return data;
    }
    QIODevice *data(const QUrl &) override
    {
        ++m_reads;
        auto *buffer = new QBuffer;
        buffer->setData(m_answer.body);
        buffer->open(QIODevice::ReadOnly);
        return buffer;
    }
    void updateMetaData(const QNetworkCacheMetaData &) override {}
    QIODevice *prepare(const QNetworkCacheMetaData &) override { return nullptr; }
    bool remove(const QUrl &) override { return false; }
    void insert(QIODevice *) override {}
    qint64 cacheSize() const override { return 0; }
    void clear() override {}

private:
    CannedAnswer m_answer;
    int m_reads = 0;
};

/// Runs the event loop until @p done() holds, then deletes what was left for deletion, so that
/// nothing of one input outlives it. An exchange that has not ended after ten seconds never will:
/// a failure of its own.
template<typename Condition>
void runUntil(Condition done)
{
    const QDeadlineTimer deadline(10000);
    while (!done()) {
        FUZZ_CHECK(!deadline.hasExpired());
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace vn::fuzz
