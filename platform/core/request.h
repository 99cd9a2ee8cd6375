#pragma once

#include <Vantro/vantro_export.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>

#include <memory>

class QJsonParseError;
class QNetworkAccessManager;

namespace vn {

class RequestPrivate;

/// One HTTP exchange, performed through a QNetworkAccessManager.
///
/// Nothing is sent by the constructor: the request starts once control returns to the event loop,
/// so the caller connects finished() right after constructing it. finished() is emitted exactly
/// once, whatever the outcome (success, HTTP error, network error, time-out or abort).
///
/// A request with a QObject parent belongs to that parent. A request without one deletes itself
/// (deleteLater) once finished() has been delivered; keep a QPointer to look at it afterwards.
///
/// Unless setSuppressErrors(true) is called, a failed request logs one warning in the category
/// "vantro.request" with the method, the URL without query or user info, the status and the error
/// text. Headers and bodies are never logged. A request that the caller aborts is not a failure.
///
/// Redirects are followed here, up to 10 hops: each hop is a fresh request built from the caller's
/// QNetworkRequest with the new URL and sent through the same manager, so that whatever the manager
/// adds (credentials) is decided for each origin anew. 301/302/303 turn any method but GET into a
/// GET without body; 307/308 keep method and body, but a 307/308 that would carry a body to another
/// origin fails. A redirect from https to http, or to another scheme, fails. On a hop to another
/// origin, caller-set Authorization and Cookie headers are dropped.
/// Only http and https URLs are served.
class VANTRO_EXPORT Request : public QObject
{
    Q_OBJECT
public:
    ~Request() override;

    /// Largest response body that is read (8 MiB); a longer answer is aborted and fails.
    static constexpr qint64 DefaultMaximumResponseSize = 8 * 1024 * 1024;

    QNetworkRequest request() const;
    QByteArray method() const;
    QUrl url() const;

    /// Milliseconds after the start at which the request is aborted (redirect hops included); each
    /// verb has its own default; 0 or less means no time-out.
    int timeout() const;
    void setTimeout(int milliseconds);

    qint64 maximumResponseSize() const;
    void setMaximumResponseSize(qint64 bytes);

    bool suppressErrors() const;
    void setSuppressErrors(bool suppress);

    bool isRunning() const;
    bool isFinished() const;

    /// The HTTP status of the final response, or 0 when no complete response was received: network
    /// error, time-out, abort, oversized answer, refused or too many redirects.
    int responseCode() const;
    /// The transport error; HTTP error statuses are judged by responseCode() alone.
    QNetworkReply::NetworkError error() const;
    QString errorString() const;
    /// Finished, the HTTP status equals @p expectedStatus, and no transport error happened.
    bool isOk(int expectedStatus) const;

    /// The body of the final response (empty when the exchange failed below HTTP).
    QByteArray rawResponse() const;
    QByteArray responseHeader(const QByteArray &name) const;
    /// The body as a JSON object or array; @p error says why when it is neither.
    QJsonValue response(QJsonParseError *error = nullptr) const;
    /// The body as a JSON object. A body that is JSON of another shape (an array) gives an empty
    /// object and the error IllegalValue at offset 0, as a body that is no JSON at all gives its
    /// parse error: a caller that checks the error never takes the wrong shape for data.
    QJsonObject responseObject(QJsonParseError *error = nullptr) const;
    /// The body as a JSON array; an object gives an empty array and the error IllegalValue.
    QJsonArray responseArray(QJsonParseError *error = nullptr) const;

public Q_SLOTS:
    /// Aborts a running request, or prevents a queued one from being sent; either way finished() is
    /// emitted before this returns, with the OperationCanceledError. Does nothing once finished.
    void abort();

Q_SIGNALS:
    void finished();

protected:
    Request(const QByteArray &method, const QNetworkRequest &request, QNetworkAccessManager *network,
            const QByteArray &body, int timeout, QObject *parent);

private:
    Q_DISABLE_COPY(Request)
    std::unique_ptr<RequestPrivate> const d;
    friend class RequestPrivate;
};

} // namespace vn
