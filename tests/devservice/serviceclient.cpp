#include "serviceclient.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <Vantro/postrequest.h>

#include <QEventLoop>
#include <QJsonDocument>

namespace vn::test {

namespace {
// Far below the requests' own time-outs, far above what any exchange with the service takes.
constexpr int RequestTimeout = 20000;
} // namespace

ServiceClient::ServiceClient(const QUrl &serviceUrl)
{
    QUrl base = serviceUrl;
    if (!base.path().endsWith(QLatin1Char('/'))) {
        base.setPath(base.path() + QLatin1Char('/'));
    }
    m_api = base.resolved(QUrl(QStringLiteral("api/v1/")));
}

void ServiceClient::setToken(const QByteArray &token)
{
    m_authorization = token.isEmpty() ? QByteArray() : "Bearer " + token;
}

void ServiceClient::setAuthorization(const QByteArray &value)
{
    m_authorization = value;
}

QUrl ServiceClient::url(const QString &path) const
{
    return m_api.resolved(QUrl(path));
}

QNetworkRequest ServiceClient::prepare(const QString &path, bool json) const
{
    QNetworkRequest request(url(path));
    if (json) {
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    }
    if (!m_authorization.isEmpty()) {
        request.setRawHeader("Authorization", m_authorization);
    }
    return request;
}

Reply ServiceClient::wait(Request *request)
{
    request->setSuppressErrors(true);
    request->setTimeout(RequestTimeout);
    Reply reply;
    QEventLoop loop;
    QObject::connect(request, &Request::finished, &loop, [&] {
        reply.status = request->responseCode();
        reply.error = request->error();
        reply.body = request->rawResponse();
        QJsonParseError error;
        reply.json = request->response(&error);
        reply.parsed = error.error == QJsonParseError::NoError;
        loop.quit();
    });
    loop.exec();
    return reply;
}

// Requests without a parent delete themselves once finished() has been delivered.
Reply ServiceClient::get(const QString &path)
{
    return wait(new GetRequest(prepare(path, false), &m_network));
}

Reply ServiceClient::post(const QString &path, const QJsonObject &body)
{
    return wait(new PostRequest(prepare(path, true), &m_network, body));
}

Reply ServiceClient::post(const QString &path, const QByteArray &body)
{
    return wait(new PostRequest(prepare(path, true), &m_network, body));
}

Reply ServiceClient::remove(const QString &path)
{
    return wait(new DeleteRequest(prepare(path, false), &m_network));
}

QByteArray ServiceClient::login(const QString &username, const QString &password, bool persistent,
                                const QString &hostInfo)
{
    const Reply reply =
        post(QStringLiteral("authenticate"), QJsonObject{
                                                 {QStringLiteral("authType"), QStringLiteral("credentials")},
                                                 {QStringLiteral("username"), username},
                                                 {QStringLiteral("password"), password},
                                                 {QStringLiteral("persistent"), persistent},
                                                 {QStringLiteral("hostInfo"), hostInfo},
                                             });
    return reply.status == 200 ? reply.object().value(QLatin1String("token")).toString().toLatin1()
                               : QByteArray();
}

} // namespace vn::test
