#include "trustfixture.h"

#include <VantroCrypto/jsonsignature.h>

#include <QFile>
#include <QJsonDocument>

namespace trustfixture {

vn::crypto::PrivateKey developmentConfigKey()
{
    QFile file(QStringLiteral(VANTRO_DEV_CONFIG_KEY));
    return file.open(QIODevice::ReadOnly) ? vn::crypto::PrivateKey(file.readAll()) : vn::crypto::PrivateKey();
}

QJsonObject configuration(const QString &serviceUrl, const vn::crypto::PublicKey &rootKey)
{
    const QJsonObject root{
        {"uuid", "root"}, {"name", "Test Root"}, {"publicKey", QString::fromLatin1(rootKey.toPEM())}};
    return QJsonObject{{"serviceUrl", serviceUrl}, {"rootIdentity", root}};
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

Chain::Chain()
{
    for (const char *name : {"root", "middle", "leaf", "stranger"}) {
        m_keys.insert(QLatin1String(name), vn::crypto::PrivateKey(vn::crypto::AbstractKey::RSA, 2048));
    }
    const QString path = m_folder.filePath(QStringLiteral("account.json"));
    const QJsonObject object =
        configuration(QStringLiteral("https://chain.example"), key("root").publicKey());
    m_installed = writeFile(path, signedDocument(object, developmentConfigKey()));
    qputenv("VANTRO_ACCOUNT_CONFIG", QFile::encodeName(path));
}

QJsonObject Chain::identity(const QString &id, const QString &signer, const QJsonValue &parent) const
{
    // An undefined parent leaves the member out.
    const QJsonObject record{{"id", id},
                             {"name", id.toUpper()},
                             {"publicKey", QString::fromLatin1(key(id).publicKey().toPEM())},
                             {"parent", parent}};
    return vn::crypto::JsonSignature::sign(record, key(signer));
}

QJsonArray Chain::records() const
{
    return QJsonArray{identity("middle", "root"), identity("leaf", "middle", "middle")};
}

} // namespace trustfixture
