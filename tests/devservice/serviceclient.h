#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

namespace vn {
class Request;
}

namespace vn::test {

/// The outcome of one exchange with the development service.
struct Reply
{
    int status = 0;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QByteArray body;
    QJsonValue json;
    bool parsed = false;

    QJsonObject object() const { return json.toObject(); }
    QJsonArray array() const { return json.toArray(); }
};

/// Talks to the development service through the platform's request classes and waits for each
/// answer, so that a test reads like the exchange it checks. Lives on the thread that creates it.
class ServiceClient
{
public:
    /// @p serviceUrl: the service's URL; API paths are resolved below "<serviceUrl>/api/v1/".
    explicit ServiceClient(const QUrl &serviceUrl);

    /// Sends "Authorization: Bearer <token>" with every later request; empty sends none.
    void setToken(const QByteArray &token);
    /// Sends this exact Authorization header value instead.
    void setAuthorization(const QByteArray &value);

    /// The URL of an API path ("consumer"), or of a path relative to the service URL when it
    /// starts with "../../" ("../../admin/faults").
    QUrl url(const QString &path) const;

    Reply get(const QString &path);
    Reply post(const QString &path, const QJsonObject &body);
    Reply post(const QString &path, const QByteArray &body);
    Reply remove(const QString &path);

    /// Logs in with name and password; the token, empty when the login failed.
    QByteArray login(const QString &username, const QString &password, bool persistent = false,
                     const QString &hostInfo = QString());

private:
    QNetworkRequest prepare(const QString &path, bool json) const;
    static Reply wait(Request *request);

    QUrl m_api;
    QByteArray m_authorization;
    QNetworkAccessManager m_network;
};

} // namespace vn::test
