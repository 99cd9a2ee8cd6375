#include "passwordreset.h"

#include "logging_p.h"

#include <Vantro/postrequest.h>

#include <QJsonObject>
#include <QLocale>
#include <QNetworkRequest>
#include <QQmlEngine>

namespace vn::account {

class PasswordResetPrivate
{
public:
    explicit PasswordResetPrivate(PasswordReset *owner)
        : q(owner)
    {}

    void setBusy(bool value)
    {
        if (busy != value) {
            busy = value;
            Q_EMIT q->busyChanged();
        }
    }

    PasswordReset *const q;
    bool busy = false;
    QString email;
};

PasswordReset::PasswordReset(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<PasswordResetPrivate>(this))
{}

PasswordReset::~PasswordReset() = default;

bool PasswordReset::isBusy() const
{
    return d->busy;
}

QString PasswordReset::email() const
{
    return d->email;
}

void PasswordReset::setEmail(const QString &email)
{
    if (d->email != email) {
        d->email = email;
        Q_EMIT emailChanged();
    }
}

QUrl PasswordReset::url()
{
    // Fixed at build time like the built-in configuration; deliberately not derived from the
    // configured service URL.
    return QUrl(QStringLiteral(VANTRO_ACCOUNT_PASSWORD_RESET_URL));
}

void PasswordReset::requestReset()
{
    if (d->busy) {
        qCWarning(lcPasswordReset) << "Cannot send request while busy";
        return;
    }
    const QString language = QLocale().name().left(2);
    QNetworkRequest request(url());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    const QJsonObject body{{QStringLiteral("username"), d->email}, {QStringLiteral("language"), language}};

    QQmlEngine *engine = qmlEngine(this);
    if (!engine) {
        qCCritical(lcPasswordReset) << "Failed to obtain QML engine";
        return;
    }
    QNetworkAccessManager *network = engine->networkAccessManager();
    if (!network) {
        qCCritical(lcPasswordReset) << "Failed to obtain network manager";
        return;
    }
    d->setBusy(true);
    auto *post = new PostRequest(request, network, body);
    connect(post, &Request::finished, this, [this, post] {
        const int code = post->responseCode();
        qCInfo(lcPasswordReset) << "Request finished with status code" << code;
        if (code != 201 && code != 404) {
            qCCritical(lcPasswordReset) << post->response();
        }
        Q_EMIT finished(code);
        d->setBusy(false);
    });
}

} // namespace vn::account
