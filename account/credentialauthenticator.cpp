#include "credentialauthenticator.h"
#include "credentialauthenticator_p.h"

#include <Vantro/postrequest.h>

#include <QJsonObject>
#include <QPointer>
#include <QStringList>

namespace vn::account {

CredentialAuthenticator::CredentialAuthenticator(QObject *parent)
    : AbstractAuthenticator(*new CredentialAuthenticatorPrivate(this), parent)
{}

CredentialAuthenticator::~CredentialAuthenticator() = default;

QString CredentialAuthenticator::userName() const
{
    Q_D(const CredentialAuthenticator);
    return d->userName;
}

void CredentialAuthenticator::setUserName(const QString &userName)
{
    Q_D(CredentialAuthenticator);
    if (d->userName == userName) {
        return;
    }
    d->userName = userName;
    Q_EMIT userNameChanged();
}

QString CredentialAuthenticator::password() const
{
    Q_D(const CredentialAuthenticator);
    return d->password;
}

void CredentialAuthenticator::setPassword(const QString &password)
{
    Q_D(CredentialAuthenticator);
    if (d->password == password) {
        return;
    }
    d->password = password;
    Q_EMIT passwordChanged();
}

void CredentialAuthenticator::start()
{
    Q_D(CredentialAuthenticator);
    if (d->request) {
        Q_EMIT finished(Busy, AccessToken());
        return;
    }

    // "user>>target": log in as user, act as target. Pieces after the target are ignored.
    const QStringList pieces = d->userName.split(QStringLiteral(">>"), Qt::SkipEmptyParts, Qt::CaseSensitive);
    if (pieces.isEmpty()) {
        Q_EMIT finished(InvalidLoginData, AccessToken());
        return;
    }

    // The password goes as typed: white space may be part of it.
    QJsonObject body{
        {QStringLiteral("authType"), QStringLiteral("credentials")},
        {QStringLiteral("username"), pieces.at(0).trimmed()},
        {QStringLiteral("password"), d->password},
        {QStringLiteral("persistent"), persistent()},
        {QStringLiteral("hostInfo"), hostInfo()},
    };
    if (pieces.size() >= 2) {
        body.insert(QStringLiteral("impersonate"), pieces.at(1).trimmed());
    }

    d->request = d->postAuthentication(body);
    connect(d->request, &vn::Request::finished, this, &CredentialAuthenticator::processResponse);
}

void CredentialAuthenticator::processResponse()
{
    Q_D(CredentialAuthenticator);
    const int code = d->request->responseCode();
    // A slot connected to finished() may delete this authenticator.
    const QPointer<CredentialAuthenticator> alive(this);
    if (code == 200) {
        const QJsonObject answer = d->request->response().toObject();
        setPassword(QString());
        Q_EMIT finished(Success, AccessToken(answer));
    } else {
        Q_EMIT finished(statusForResponseCode(code), AccessToken());
    }
    if (alive) {
        d->request = nullptr;
    }
}

} // namespace vn::account
