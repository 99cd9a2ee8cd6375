#include "developmentkeys.h"

#include <QFile>

// The resource initialiser must be named at global scope, outside any namespace.
static void initialiseDevServiceResources()
{
    Q_INIT_RESOURCE(devservice);
}

namespace vn::devservice {

namespace {

crypto::PrivateKey loadBuiltInKey(const char *name)
{
    // A static library's resources are not registered by themselves: do it before the first read.
    static const bool initialised = [] {
        initialiseDevServiceResources();
        return true;
    }();
    Q_UNUSED(initialised)
    return crypto::PrivateKey(
        DevelopmentKeys::readPemFile(QStringLiteral(":/vantro-devservice/keys/") + QLatin1String(name)));
}

} // namespace

QString DevelopmentKeys::rootIdentityUuid()
{
    return QStringLiteral("root");
}

QString DevelopmentKeys::rootIdentityName()
{
    return QStringLiteral("Vantro Development Root");
}

crypto::PrivateKey DevelopmentKeys::configurationKey()
{
    static const crypto::PrivateKey key = loadBuiltInKey("config-signing.pem");
    return key;
}

crypto::PrivateKey DevelopmentKeys::rootIdentityKey()
{
    static const crypto::PrivateKey key = loadBuiltInKey("root-identity.pem");
    return key;
}

QJsonObject DevelopmentKeys::rootIdentity()
{
    static const QJsonObject record = [] {
        QByteArray pem = rootIdentityKey().publicKey().toPEM();
        while (pem.endsWith('\n') || pem.endsWith('\r')) {
            pem.chop(1);
        }
        return QJsonObject{
            {QStringLiteral("uuid"), rootIdentityUuid()},
            {QStringLiteral("name"), rootIdentityName()},
            {QStringLiteral("publicKey"), QString::fromLatin1(pem)},
        };
    }();
    return record;
}

QByteArray DevelopmentKeys::readPemFile(const QString &path)
{
    constexpr qint64 maximumPemSize = 64 * 1024;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return QByteArray();
    }
    return file.read(maximumPemSize);
}

} // namespace vn::devservice
