#include "challengeresponseauthenticator.h"
#include "challengeresponseauthenticator_p.h"

#include "logging_p.h"

#include <QFile>
#include <QJsonObject>

namespace vn::account {

namespace {

// A PEM private key of any size this library accepts is a few kilobytes; anything much larger is
// not a key, and is not read into memory whole.
constexpr qint64 MaximumKeyFileSize = 64 * 1024;

const QString AuthType = QStringLiteral("challenge-response");

} // namespace

vn::PostRequest *ChallengeResponseAuthenticatorPrivate::post(const QJsonObject &body)
{
    runningRequest = postAuthentication(body);
    return runningRequest;
}

ChallengeResponseAuthenticator::ChallengeResponseAuthenticator(QObject *parent)
    : AbstractAuthenticator(*new ChallengeResponseAuthenticatorPrivate(this), parent)
{}

ChallengeResponseAuthenticator::~ChallengeResponseAuthenticator() = default;

crypto::PrivateKey ChallengeResponseAuthenticator::privateKey() const
{
    Q_D(const ChallengeResponseAuthenticator);
    return d->privateKey;
}

void ChallengeResponseAuthenticator::setPrivateKey(const crypto::PrivateKey &key)
{
    Q_D(ChallengeResponseAuthenticator);
    // QByteArray compares lengths first, then the bytes.
    if (key.fingerPrint(QCryptographicHash::Sha1) == d->privateKey.fingerPrint(QCryptographicHash::Sha1)) {
        return;
    }
    d->privateKey = key;
    d->publicKey = key.publicKey();
    Q_EMIT privateKeyChanged();
}

bool ChallengeResponseAuthenticator::loadPrivateKey(const QUrl &file, const QString &passphrase)
{
    // A key compiled into the application comes as a "qrc:" URL, and QFile reads it as ":/path".
    const QString path = file.isLocalFile()                      ? file.toLocalFile()
                         : file.scheme() == QLatin1String("qrc") ? QLatin1Char(':') + file.path()
                                                                 : file.path();
    QFile keyFile(path);
    if (!keyFile.open(QIODevice::ReadOnly)) {
        qCWarning(lcAccountKeyAuth, "Cannot read the key file %s: %s", qUtf8Printable(path),
                  qUtf8Printable(keyFile.errorString()));
        return false;
    }
    // Read with a limit rather than trusting the size: a pipe reports none.
    const QByteArray pem = keyFile.read(MaximumKeyFileSize + 1);
    if (pem.size() > MaximumKeyFileSize) {
        qCWarning(lcAccountKeyAuth, "The key file %s is too large to hold a key", qUtf8Printable(path));
        return false;
    }
    const crypto::PrivateKey key(pem, passphrase);
    if (!key.isValid()) {
        qCWarning(lcAccountKeyAuth, "The key file %s holds no usable private key: %s", qUtf8Printable(path),
                  qUtf8Printable(key.errorString()));
        return false;
    }
    setPrivateKey(key);
    return true;
}

void ChallengeResponseAuthenticator::start()
{
    Q_D(ChallengeResponseAuthenticator);
    if (d->runningRequest) {
        Q_EMIT finished(Busy, AccessToken());
        return;
    }
    if (!d->privateKey.isValid()) {
        Q_EMIT finished(InvalidLoginData, AccessToken());
        return;
    }
    // The host description and the persistent flag go with the answer, not with the question.
    const QJsonObject body{
        {QStringLiteral("authType"), AuthType},
        {QStringLiteral("phase"), QStringLiteral("challenge")},
        {QStringLiteral("fingerprint"),
         QString::fromLatin1(d->publicKey.fingerPrint(QCryptographicHash::Sha256).toBase64())},
    };
    connect(d->post(body), &vn::Request::finished, this, &ChallengeResponseAuthenticator::receiveChallenge);
}

void ChallengeResponseAuthenticator::receiveChallenge()
{
    Q_D(ChallengeResponseAuthenticator);
    const int code = d->runningRequest->responseCode();
    if (code != 200) {
        d->runningRequest = nullptr;
        Q_EMIT finished(statusForResponseCode(code), AccessToken());
        return;
    }

    // On the two failures below the phase-1 request deliberately stays recorded as running: the
    // authenticator is spent, and every later start() reports Busy.
    const QJsonObject answer = d->runningRequest->response().toObject();
    const QString challenge = answer.value(QLatin1String("challenge")).toString();
    if (challenge.isEmpty()) {
        Q_EMIT finished(ServiceFailure, AccessToken());
        return;
    }
    const QByteArray secret = d->privateKey.decrypt(QByteArray::fromBase64(challenge.toLatin1()));
    if (d->privateKey.error() != 0) {
        qCCritical(lcAccountKeyAuth, "%s", qUtf8Printable(d->privateKey.errorString()));
        Q_EMIT finished(RequestFailed, AccessToken());
        return;
    }

    const QJsonObject body{
        {QStringLiteral("authType"), AuthType},
        {QStringLiteral("phase"), QStringLiteral("response")},
        {QStringLiteral("challengeId"), answer.value(QLatin1String("id")).toString()},
        {QStringLiteral("challenge"), QString::fromLatin1(secret.toBase64())},
        {QStringLiteral("hostInfo"), hostInfo()},
        {QStringLiteral("persistent"), persistent()},
    };
    connect(d->post(body), &vn::Request::finished, this, &ChallengeResponseAuthenticator::processResponse);
}

void ChallengeResponseAuthenticator::processResponse()
{
    Q_D(ChallengeResponseAuthenticator);
    const vn::PostRequest *request = d->runningRequest;
    d->runningRequest = nullptr;
    if (request->responseCode() == 200) {
        Q_EMIT finished(Success, AccessToken(request->response().toObject()));
    } else {
        Q_EMIT finished(statusForResponseCode(request->responseCode()), AccessToken());
    }
}

} // namespace vn::account
