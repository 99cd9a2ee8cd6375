#pragma once

#include "request.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>
#include <QTimer>

namespace vn {

Q_DECLARE_LOGGING_CATEGORY(lcRequest)

/// The body that the verbs send for a JSON document: always the compact form.
inline QByteArray compactJson(const QJsonDocument &document)
{
    return document.toJson(QJsonDocument::Compact);
}

class RequestPrivate
{
public:
    enum class State { Queued, Running, Finished };

    static constexpr int MaximumRedirects = 10;

    RequestPrivate(Request *q, const QByteArray &method, const QNetworkRequest &request,
                   QNetworkAccessManager *network, const QByteArray &body, int timeout);

    void start();
    void sendHop();
    QNetworkRequest hopRequest() const;
    void connectReply();
    void releaseReply();

    void checkContentLength();
    bool readAvailable();
    void replyFinished();
    /// True when the reply was a redirect that was followed or refused (the exchange goes on or is over).
    bool handleRedirect(int status);

    /// Ends the exchange here: the reply is aborted and the request finishes as failed.
    void fail(QNetworkReply::NetworkError error, const QString &text, bool logFailure = true);
    void finish(bool logFailure);
    void armTimer();

    QString redacted(const QUrl &url) const;
    QString sanitizedErrorString(const QString &text) const;

    Request *const q;
    const QByteArray method;
    const QNetworkRequest request;
    const QPointer<QNetworkAccessManager> network;
    const QByteArray body;
    int timeout;
    qint64 maximumResponseSize = Request::DefaultMaximumResponseSize;
    bool suppressErrors = false;

    State state = State::Queued;
    QByteArray hopMethod;
    QByteArray hopBody;
    bool bodyDropped = false;
    QUrl hopUrl;
    int redirectCount = 0;
    QPointer<QNetworkReply> reply;
    QTimer timer;
    QElapsedTimer elapsed;

    int responseCode = 0;
    int receivedStatus = 0;
    bool failed = false;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QString errorString;
    QByteArray response;
    QList<QNetworkReply::RawHeaderPair> responseHeaders;
};

} // namespace vn
