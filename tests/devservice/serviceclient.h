#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

namespace vn::test {

// The demo scenario's users.
inline const QString Ada = QStringLiteral("ada@example.com");
inline const QString AdaPassword = QStringLiteral("ada-demo-password");
inline const QString Bob = QStringLiteral("bob@example.com");
inline const QString BobPassword = QStringLiteral("bob-demo-password");

inline QString text(const QJsonValue &object, const char *key)
{
    return object.toObject().value(QLatin1String(key)).toString();
}
QByteArray readFile(const QString &path);
/// The payload of a compact token.
QJsonObject tokenClaims(const QByteArray &token);

/// The outcome of one exchange with the development service.
struct Reply
{
    int status = 0;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QJsonValue json;
    bool parsed = false;
    QByteArray wwwAuthenticate;

    QJsonObject object() const { return json.toObject(); }
    QJsonArray array() const { return json.toArray(); }
    QString text(const char *key) const { return vn::test::text(json, key); }
};

/// Talks to the development service through the platform's request classes and waits for each
/// answer, so that a test reads like the exchange it checks. Lives on the thread that creates it.
class ServiceClient
{
public:
    /// @p serviceUrl: the service's URL; paths are resolved below "<serviceUrl>/api/v1/", so that
    /// "../../admin/faults" reaches the admin path.
    explicit ServiceClient(const QUrl &serviceUrl);

    /// Sends "Authorization: Bearer <token>" with every later request; empty sends none.
    void setToken(const QByteArray &token);

    /// GET, POST, PUT or DELETE.
    Reply send(const QByteArray &method, const QString &path, const QByteArray &body = QByteArray());
    Reply get(const QString &path) { return send("GET", path); }
    Reply post(const QString &path, const QJsonObject &body);

    /// Logs in with name and password; the token, empty when the login failed.
    QByteArray login(const QString &username, const QString &password);
    /// Logs in and sends the token from then on.
    ServiceClient &as(const QString &username, const QString &password);

private:
    QUrl m_api;
    QByteArray m_authorization;
    QNetworkAccessManager m_network;
};

} // namespace vn::test
