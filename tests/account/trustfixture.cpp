#include "trustfixture.h"

#include <VantroCrypto/jsonsignature.h>

#include <QFile>
#include <QJsonDocument>

namespace trustfixture {

vn::crypto::PrivateKey developmentConfigKey()
{
    QFile file(QStringLiteral(VANTRO_DEV_CONFIG_KEY));
    if (!file.open(QIODevice::ReadOnly)) {
        return vn::crypto::PrivateKey();
    }
    return vn::crypto::PrivateKey(file.readAll());
}

QJsonObject configuration(const QString &serviceUrl, const vn::crypto::PublicKey &rootKey)
{
    const QJsonObject root{{QStringLiteral("uuid"), QStringLiteral("root")},
                           {QStringLiteral("name"), QStringLiteral("Test Root")},
                           {QStringLiteral("publicKey"), QString::fromLatin1(rootKey.toPEM())}};
    return QJsonObject{{QStringLiteral("serviceUrl"), serviceUrl}, {QStringLiteral("rootIdentity"), root}};
}

QByteArray signedDocument(const QJsonObject &object, const vn::crypto::PrivateKey &key)
{
    return QJsonDocument(vn::crypto::JsonSignature::sign(object, key)).toJson(QJsonDocument::Compact);
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

} // namespace trustfixture
