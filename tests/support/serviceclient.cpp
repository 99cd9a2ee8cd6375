#include "serviceclient.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <Vantro/postrequest.h>
#include <Vantro/putrequest.h>

#include <QEventLoop>
#include <QJsonDocument>

namespace vn::test {

ServiceClient::ServiceClient(const QUrl &serviceUrl)
{
    QUrl base = serviceUrl;
    base.setPath(base.path() + (base.path().endsWith(QLatin1Char('/')) ? "" : "/"));
    m_api = base.resolved(QUrl(QStringLiteral("api/v1/")));
}

void ServiceClient::setToken(const QByteArray &token)
{
    m_authorization = token.isEmpty() ? QByteArray() : "Bearer " + token;
}

Reply ServiceClient::send(const QByteArray &method, const QString &path, const QByteArray &body)
{
    QNetworkRequest prepared(m_api.resolved(QUrl(path)));
    prepared.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    if (!m_authorization.isEmpty()) {
        prepared.setRawHeader("Authorization", m_authorization);
    }
    // Requests without a parent delete themselves once finished() has been delivered.
    Request *request = method == "GET"      ? new GetRequest(prepared, &m_network)
                       : method == "DELETE" ? new DeleteRequest(prepared, &m_network)
                       : method == "PUT" ? static_cast<Request *>(new PutRequest(prepared, &m_network, body))
                                         : new PostRequest(prepared, &m_network, body);
    request->setSuppressErrors(true);
    // Far above what any exchange with the service takes, far below the test's own time-out.
    request->setTimeout(20000);
    Reply reply;
    QEventLoop loop;
    QObject::connect(request, &Request::finished, &loop, [&] {
        reply.status = request->responseCode();
        reply.wwwAuthenticate = request->responseHeader("WWW-Authenticate");
        QJsonParseError error;
        reply.json = request->response(&error);
        reply.parsed = error.error == QJsonParseError::NoError;
        loop.quit();
    });
    loop.exec();
    return reply;
}

Reply ServiceClient::post(const QString &path, const QJsonObject &body)
{
    return send("POST", path, QJsonDocument(body).toJson(QJsonDocument::Compact));
}

QByteArray ServiceClient::login(const QString &username, const QString &password)
{
    return post(QStringLiteral("authenticate"),
                {{"authType", "credentials"}, {"username", username}, {"password", password}})
        .text("token")
        .toLatin1();
}

ServiceClient &ServiceClient::as(const QString &demoUser)
{
    setToken(login(demoUser, demoUser == demo::Ada ? demo::AdaPassword : demo::BobPassword));
    return *this;
}

} // namespace vn::test
