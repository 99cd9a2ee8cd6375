#include "networkaccessmanager.h"
#include "authorizationregistry.h"
#include "formencoding_p.h"
#include "networklogging_p.h"

#include <QCoreApplication>
#include <QMutex>
#include <QPointer>

namespace vn::network {

namespace {

// Form bodies are small; a larger one is sent unsigned rather than copied for the signature.
constexpr qint64 MaximumSignedBodySize = 1024 * 1024;

QByteArray verbOf(QNetworkAccessManager::Operation operation, const QNetworkRequest &request)
{
    switch (operation) {
    case QNetworkAccessManager::HeadOperation:
        return QByteArrayLiteral("HEAD");
    case QNetworkAccessManager::GetOperation:
        return QByteArrayLiteral("GET");
    case QNetworkAccessManager::PutOperation:
        return QByteArrayLiteral("PUT");
    case QNetworkAccessManager::PostOperation:
        return QByteArrayLiteral("POST");
    case QNetworkAccessManager::DeleteOperation:
        return QByteArrayLiteral("DELETE");
    case QNetworkAccessManager::CustomOperation:
        return request.attribute(QNetworkRequest::CustomVerbAttribute).toByteArray();
    case QNetworkAccessManager::UnknownOperation:
        break;
    }
    return QByteArray();
}

// The body, for the schemes that sign it, when it can be read without consuming it.
QByteArray signableBody(const QNetworkRequest &request, QIODevice *outgoingData)
{
    if (!outgoingData || outgoingData->isSequential() || !outgoingData->isReadable() ||
        !isFormEncoded(request)) {
        return QByteArray();
    }
    const qint64 remaining = outgoingData->size() - outgoingData->pos();
    if (remaining <= 0 || remaining > MaximumSignedBodySize) {
        return QByteArray();
    }
    return outgoingData->peek(remaining);
}

} // namespace

NetworkAccessManager::NetworkAccessManager(QObject *parent)
    : QNetworkAccessManager(parent)
{}

NetworkAccessManager::~NetworkAccessManager() = default;

NetworkAccessManager *NetworkAccessManager::sharedInstance()
{
    static QMutex mutex;
    static QPointer<NetworkAccessManager> shared;
    QMutexLocker lock(&mutex);
    if (shared) {
        return shared;
    }
    auto *manager = new NetworkAccessManager;
    if (QCoreApplication *application = QCoreApplication::instance()) {
        // The application object owns it, so it is gone before the application's event loop and
        // network threads are; the next call after that makes a fresh one.
        if (manager->thread() != application->thread()) {
            manager->moveToThread(application->thread());
        }
        manager->setParent(application);
    } else {
        qAddPostRoutine([] { delete shared.data(); });
    }
    shared = manager;
    return manager;
}

QNetworkReply *NetworkAccessManager::createRequest(Operation operation, const QNetworkRequest &request,
                                                   QIODevice *outgoingData)
{
    // An Authorization header that the caller wrote itself is the caller's decision and stays.
    if (request.hasRawHeader(QByteArrayLiteral("Authorization"))) {
        return QNetworkAccessManager::createRequest(operation, request, outgoingData);
    }

    QNetworkRequest authorized(request);
    const bool written = AuthorizationRegistry::instance()->authorize(authorized, verbOf(operation, request),
                                                                      signableBody(request, outgoingData));
    if (written) {
        // Qt follows a redirect by re-sending this very request, header included, without
        // passing through here: the credential would reach whatever origin the Location names,
        // and an OAuth 1 signature made for this URL and verb would go to another. So a request
        // that carries a registered credential is never redirected by Qt; it finishes with the 3xx
        // response, and whoever follows it (vn::Request does) sends the next hop through this
        // manager as a new request, which gets the registry's decision for its own origin.
        // Requests without a credential keep the caller's redirect policy.
        authorized.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                QNetworkRequest::ManualRedirectPolicy);
        QT_WARNING_PUSH
        QT_WARNING_DISABLE_DEPRECATED
        authorized.setAttribute(QNetworkRequest::FollowRedirectsAttribute, QVariant());
        QT_WARNING_POP
    }
    return QNetworkAccessManager::createRequest(operation, authorized, outgoingData);
}

} // namespace vn::network
