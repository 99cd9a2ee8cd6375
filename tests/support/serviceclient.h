#pragma once

#include <demoscenario.h>
#include <testio.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QNetworkAccessManager>
#include <QUrl>

namespace vn::test {

/// The outcome of one exchange with the development service.
struct Reply
{
    int status = 0;
    QJsonValue json;
    bool parsed = false;
    QByteArray wwwAuthenticate;

    QJsonObject object() const { return json.toObject(); }
    QJsonArray array() const { return json.toArray(); }
    QString text(const char *key) const { return object().value(QLatin1String(key)).toString(); }
    /// "503": that status with a JSON body; "200!": with a body that is not JSON.
    QString outcome() const { return QString::number(status) + QLatin1String(parsed ? "" : "!"); }
};

/// Talks to the development service through the platform's request classes and waits for each
/// answer, so that a test reads like the exchange it checks. Lives on the thread that creates it.
class ServiceClient
{
public:
    /// Paths are resolved below "<serviceUrl>/api/v1/", so that "../../admin/faults" reaches the
    /// admin path.
    explicit ServiceClient(const QUrl &serviceUrl);

    /// Sends "Authorization: Bearer <token>" with every later request; empty sends none.
    void setToken(const QByteArray &token);

    /// GET, POST, PUT or DELETE.
    Reply send(const QByteArray &method, const QString &path, const QByteArray &body = QByteArray());
    Reply get(const QString &path) { return send("GET", path); }
    Reply post(const QString &path, const QJsonObject &body);

    /// Logs in with name and password; the token, empty when the login failed.
    QByteArray login(const QString &username, const QString &password);
    /// Logs in as a demo user and sends the token from then on.
    ServiceClient &as(const QString &demoUser);

private:
    QUrl m_api;
    QByteArray m_authorization;
    QNetworkAccessManager m_network;
};

} // namespace vn::test
