// One HTTP exchange from start to finished(): the queued start, the time-out, the capped body, the
// redirects followed hop by hop (each a new request through the manager, so that credentials are
// decided per origin, and never from https to http or with a body to another origin), and the one
// warning of a failure. About 400 lines, kept together: every step hands the reply to the next, and
// splitting them would spread one state machine over several files.

#include "request.h"
#include "request_p.h"

#include <QJsonParseError>
#include <QNetworkAccessManager>

namespace vn {

Q_LOGGING_CATEGORY(lcRequest, "vantro.request", QtInfoMsg)

namespace {

const QByteArray GetMethod = QByteArrayLiteral("GET");
const QByteArray HeadMethod = QByteArrayLiteral("HEAD");

bool isHttpScheme(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return scheme == QLatin1String("http") || scheme == QLatin1String("https");
}

bool isHttps(const QUrl &url)
{
    return url.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
}

int effectivePort(const QUrl &url)
{
    return url.port(isHttps(url) ? 443 : 80);
}

bool sameOrigin(const QUrl &first, const QUrl &second)
{
    return first.scheme().compare(second.scheme(), Qt::CaseInsensitive) == 0 &&
           first.host().compare(second.host(), Qt::CaseInsensitive) == 0 &&
           effectivePort(first) == effectivePort(second);
}

/// Qt reports every HTTP status from 400 up as one of these errors as well; for such a response the
/// status alone tells what happened, the exchange itself went through.
bool isHttpStatusError(QNetworkReply::NetworkError error)
{
    switch (error) {
    case QNetworkReply::ProtocolInvalidOperationError:
    case QNetworkReply::AuthenticationRequiredError:
    case QNetworkReply::ProxyAuthenticationRequiredError:
    case QNetworkReply::ContentAccessDenied:
    case QNetworkReply::ContentNotFoundError:
    case QNetworkReply::ContentOperationNotPermittedError:
    case QNetworkReply::ContentConflictError:
    case QNetworkReply::ContentGoneError:
    case QNetworkReply::UnknownContentError:
    case QNetworkReply::InternalServerError:
    case QNetworkReply::OperationNotImplementedError:
    case QNetworkReply::ServiceUnavailableError:
    case QNetworkReply::UnknownServerError:
        return true;
    default:
        return false;
    }
}

bool isRedirectStatus(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

RequestPrivate::RequestPrivate(Request *q, const QByteArray &method, const QNetworkRequest &request,
                               QNetworkAccessManager *network, const QByteArray &body, int timeout)
    : q(q)
    , method(method)
    , request(request)
    , network(network)
    , body(body)
    , timeout(timeout)
    , hopMethod(method)
    , hopBody(body)
    , hopUrl(request.url())
{
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, q, [this] {
        fail(QNetworkReply::TimeoutError, QStringLiteral("timed out after %1 ms").arg(this->timeout));
    });
}

void RequestPrivate::start()
{
    if (state != State::Queued) {
        return;
    }
    state = State::Running;
    elapsed.start();
    armTimer();
    sendHop();
}

void RequestPrivate::armTimer()
{
    if (state != State::Running) {
        return;
    }
    if (timeout <= 0) {
        timer.stop();
        return;
    }
    timer.start(int(qMax<qint64>(0, timeout - elapsed.elapsed())));
}

QNetworkRequest RequestPrivate::hopRequest() const
{
    // Always the caller's request, never the previous hop's: headers that the manager wrote for one
    // origin must not travel to the next.
    QNetworkRequest next(request);
    next.setUrl(hopUrl);
    next.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    if (bodyDropped) {
        next.setHeader(QNetworkRequest::ContentTypeHeader, QVariant());
        next.setRawHeader(QByteArrayLiteral("Content-Type"), QByteArray());
    }
    if (!sameOrigin(request.url(), hopUrl)) {
        next.setRawHeader(QByteArrayLiteral("Authorization"), QByteArray());
        next.setHeader(QNetworkRequest::CookieHeader, QVariant());
        next.setRawHeader(QByteArrayLiteral("Cookie"), QByteArray());
    }
    return next;
}

void RequestPrivate::sendHop()
{
    if (!isHttpScheme(hopUrl)) {
        fail(QNetworkReply::ProtocolUnknownError, QStringLiteral("only http and https URLs are supported"));
        return;
    }
    if (!network) {
        fail(QNetworkReply::UnknownNetworkError, QStringLiteral("no network access manager"));
        return;
    }
    response.clear();
    responseHeaders.clear();
    receivedStatus = 0;

    const QNetworkRequest next = hopRequest();
    if (hopMethod == GetMethod) {
        reply = network->get(next);
    } else if (hopMethod == "POST") {
        reply = network->post(next, hopBody);
    } else if (hopMethod == "PUT") {
        reply = network->put(next, hopBody);
    } else if (hopMethod == "DELETE" && hopBody.isEmpty()) {
        reply = network->deleteResource(next);
    } else {
        reply = network->sendCustomRequest(next, hopMethod, hopBody);
    }
    if (!reply) {
        fail(QNetworkReply::UnknownNetworkError,
             QStringLiteral("the network access manager refused the request"));
        return;
    }
    connectReply();
}

void RequestPrivate::connectReply()
{
    QNetworkReply *current = reply;
    QObject::connect(current, &QNetworkReply::metaDataChanged, q, [this] { checkContentLength(); });
    QObject::connect(current, &QNetworkReply::readyRead, q, [this] { readAvailable(); });
    QObject::connect(current, &QNetworkReply::finished, q, [this] { replyFinished(); });
    // The manager deletes its replies when it goes away; the exchange is over then.
    QObject::connect(current, &QObject::destroyed, q, [this] {
        QMetaObject::invokeMethod(
            q,
            [this] {
                if (state == State::Running && !reply) {
                    fail(QNetworkReply::OperationCanceledError,
                         QStringLiteral("the network access manager was destroyed"));
                }
            },
            Qt::QueuedConnection);
    });
}

void RequestPrivate::releaseReply()
{
    if (!reply) {
        return;
    }
    QNetworkReply *old = reply;
    reply = nullptr;
    QObject::disconnect(old, nullptr, q, nullptr);
    if (old->isRunning()) {
        old->abort();
    }
    old->deleteLater();
}

void RequestPrivate::checkContentLength()
{
    if (!reply) {
        return;
    }
    bool known = false;
    const qint64 length = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong(&known);
    if (known && length > maximumResponseSize) {
        fail(QNetworkReply::UnknownContentError,
             QStringLiteral("response larger than %1 bytes").arg(maximumResponseSize));
    }
}

bool RequestPrivate::readAvailable()
{
    if (!reply) {
        return false;
    }
    const QByteArray chunk = reply->readAll();
    if (chunk.size() > maximumResponseSize - response.size()) {
        fail(QNetworkReply::UnknownContentError,
             QStringLiteral("response larger than %1 bytes").arg(maximumResponseSize));
        return false;
    }
    response += chunk;
    return true;
}

void RequestPrivate::replyFinished()
{
    if (!readAvailable() || state != State::Running) {
        return;
    }
    QNetworkReply *const finishedReply = reply;
    const int status = finishedReply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    receivedStatus = status;
    if (finishedReply->error() == QNetworkReply::NoError && isRedirectStatus(status) &&
        handleRedirect(status)) {
        return;
    }

    error = finishedReply->error();
    // Qt does not always notice a connection that closed before the announced length arrived. (A
    // compressed answer announces the length before Qt unpacks it.)
    bool known = false;
    const qint64 length = finishedReply->header(QNetworkRequest::ContentLengthHeader).toLongLong(&known);
    if (error == QNetworkReply::NoError && known && length != response.size() &&
        finishedReply->operation() != QNetworkAccessManager::HeadOperation &&
        !finishedReply->hasRawHeader(QByteArrayLiteral("Content-Encoding"))) {
        fail(QNetworkReply::RemoteHostClosedError,
             QStringLiteral("the answer ended after %1 of %2 bytes").arg(response.size()).arg(length));
        return;
    }
    responseHeaders = finishedReply->rawHeaderPairs();
    if (error == QNetworkReply::NoError) {
        responseCode = status;
    } else if (status >= 400 && isHttpStatusError(error)) {
        responseCode = status;
        // Qt's own text names the whole URL, query included.
        const QString reason =
            finishedReply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
        errorString = reason.isEmpty() ? QStringLiteral("HTTP %1").arg(status)
                                       : QStringLiteral("HTTP %1 %2").arg(status).arg(reason);
    } else {
        failed = true;
        responseCode = 0;
        errorString = sanitizedErrorString(finishedReply->errorString());
        response.clear();
        responseHeaders.clear();
    }
    releaseReply();
    finish(failed || responseCode >= 400);
}

bool RequestPrivate::handleRedirect(int status)
{
    const QUrl location = QUrl::fromEncoded(reply->rawHeader(QByteArrayLiteral("Location")));
    if (location.isEmpty() || !location.isValid()) {
        return false; // nothing to follow: the 3xx is the answer
    }
    const QUrl target = hopUrl.resolved(location);
    if (redirectCount >= MaximumRedirects) {
        fail(QNetworkReply::TooManyRedirectsError,
             QStringLiteral("more than %1 redirects").arg(MaximumRedirects));
        return true;
    }
    if (!isHttpScheme(target)) {
        fail(QNetworkReply::ProtocolUnknownError, QStringLiteral("refused redirect to a non-HTTP URL"));
        return true;
    }
    if (isHttps(hopUrl) && !isHttps(target)) {
        fail(QNetworkReply::InsecureRedirectError, QStringLiteral("refused redirect from https to http"));
        return true;
    }

    // A body written for one origin (a login's password, say) is never handed to another one.
    if ((status == 307 || status == 308) && !hopBody.isEmpty() && !sameOrigin(request.url(), target)) {
        fail(QNetworkReply::InsecureRedirectError,
             QStringLiteral("refused to send the request body on to another origin"));
        return true;
    }
    if (status <= 303 && hopMethod != GetMethod && hopMethod != HeadMethod) {
        hopMethod = GetMethod;
        hopBody.clear();
        bodyDropped = true;
    }
    releaseReply();
    hopUrl = target;
    ++redirectCount;
    sendHop();
    return true;
}

void RequestPrivate::fail(QNetworkReply::NetworkError failure, const QString &text, bool logFailure)
{
    if (state == State::Finished) {
        return;
    }
    releaseReply();
    failed = true;
    error = failure;
    errorString = text;
    responseCode = 0;
    response.clear();
    responseHeaders.clear();
    finish(logFailure);
}

void RequestPrivate::finish(bool logFailure)
{
    state = State::Finished;
    timer.stop();
    if (logFailure && !suppressErrors) {
        const QString where = hopUrl == request.url()
                                  ? redacted(request.url())
                                  : redacted(request.url()) + QStringLiteral(" (redirected to ") +
                                        redacted(hopUrl) + QLatin1Char(')');
        qCWarning(lcRequest, "%s %s failed: status %d, %s", method.constData(), qUtf8Printable(where),
                  receivedStatus, qUtf8Printable(errorString));
    }

    const QPointer<Request> alive(q);
    Q_EMIT q->finished();
    if (alive && !alive->parent()) {
        alive->deleteLater();
    }
}

QString RequestPrivate::redacted(const QUrl &url) const
{
    return url.toDisplayString(QUrl::RemoveQuery | QUrl::RemoveUserInfo | QUrl::RemoveFragment);
}

QString RequestPrivate::sanitizedErrorString(const QString &text) const
{
    QString clean = text;
    for (const QUrl &url : {request.url(), hopUrl}) {
        const QString safe = redacted(url);
        clean.replace(url.toString(), safe);
        clean.replace(url.toString(QUrl::FullyEncoded), safe);
        clean.replace(url.toDisplayString(), safe);
    }
    return clean;
}

Request::Request(const QByteArray &method, const QNetworkRequest &request, QNetworkAccessManager *network,
                 const QByteArray &body, int timeout, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<RequestPrivate>(this, method, request, network, body, timeout))
{
    // Started from the event loop, so that the caller can connect finished() first.
    QMetaObject::invokeMethod(
        this, [this] { d->start(); }, Qt::QueuedConnection);
}

Request::~Request()
{
    d->releaseReply();
}

QNetworkRequest Request::request() const
{
    return d->request;
}

QByteArray Request::method() const
{
    return d->method;
}

QUrl Request::url() const
{
    return d->request.url();
}

int Request::timeout() const
{
    return d->timeout;
}

void Request::setTimeout(int milliseconds)
{
    if (d->timeout == milliseconds) {
        return;
    }
    d->timeout = milliseconds;
    d->armTimer();
}

qint64 Request::maximumResponseSize() const
{
    return d->maximumResponseSize;
}

void Request::setMaximumResponseSize(qint64 bytes)
{
    d->maximumResponseSize = bytes;
}

bool Request::suppressErrors() const
{
    return d->suppressErrors;
}

void Request::setSuppressErrors(bool suppress)
{
    d->suppressErrors = suppress;
}

bool Request::isRunning() const
{
    return d->state == RequestPrivate::State::Running;
}

bool Request::isFinished() const
{
    return d->state == RequestPrivate::State::Finished;
}

int Request::responseCode() const
{
    return d->responseCode;
}

QNetworkReply::NetworkError Request::error() const
{
    return d->error;
}

QString Request::errorString() const
{
    return d->errorString;
}

bool Request::isOk(int expectedStatus) const
{
    return isFinished() && !d->failed && d->responseCode == expectedStatus;
}

QByteArray Request::rawResponse() const
{
    return d->response;
}

QByteArray Request::responseHeader(const QByteArray &name) const
{
    for (const auto &[headerName, value] : qAsConst(d->responseHeaders)) {
        if (headerName.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return QByteArray();
}

QJsonValue Request::response(QJsonParseError *error) const
{
    const QJsonDocument document = QJsonDocument::fromJson(d->response, error);
    if (document.isObject()) {
        return document.object();
    }
    if (document.isArray()) {
        return document.array();
    }
    return QJsonValue();
}

namespace {

// The parse error for JSON that parsed but is not of the shape asked for.
void reportWrongShape(const QJsonValue &value, bool expected, QJsonParseError *error)
{
    if (error && error->error == QJsonParseError::NoError && !value.isNull() && !expected) {
        error->error = QJsonParseError::IllegalValue;
        error->offset = 0;
    }
}

} // namespace

QJsonObject Request::responseObject(QJsonParseError *error) const
{
    const QJsonValue value = response(error);
    reportWrongShape(value, value.isObject(), error);
    return value.toObject();
}

QJsonArray Request::responseArray(QJsonParseError *error) const
{
    const QJsonValue value = response(error);
    reportWrongShape(value, value.isArray(), error);
    return value.toArray();
}

void Request::abort()
{
    // The caller asked for it: nothing went wrong that a log reader should hear about.
    d->fail(QNetworkReply::OperationCanceledError, QStringLiteral("aborted"), false);
}

} // namespace vn
