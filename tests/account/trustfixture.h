#pragma once

#include "testio.h"

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>

#include <QtCore>

// Signed account configurations and identity chains for tests. Only the development configuration
// key, whose path comes from the build, makes a configuration that the library accepts.
namespace trustfixture {

inline vn::crypto::PrivateKey developmentConfigKey()
{
    return vn::crypto::PrivateKey(vn::test::readFile(QStringLiteral(VANTRO_DEV_CONFIG_KEY)));
}

/// A configuration naming @p serviceUrl and a root identity "root" ("Test Root") with @p rootKey.
inline QJsonObject configuration(const QString &serviceUrl, const vn::crypto::PublicKey &rootKey)
{
    const QJsonObject root{
        {"uuid", "root"}, {"name", "Test Root"}, {"publicKey", QString::fromLatin1(rootKey.toPEM())}};
    return QJsonObject{{"serviceUrl", serviceUrl}, {"rootIdentity", root}};
}

/// @p object signed with @p key, as compact JSON bytes.
inline QByteArray signedDocument(const QJsonObject &object, const vn::crypto::PrivateKey &key)
{
    return QJsonDocument(vn::crypto::JsonSignature::sign(object, key)).toJson(QJsonDocument::Compact);
}

/// Keys "root", "middle", "leaf" and "stranger", and a configuration whose root identity holds the
/// "root" key, signed and named in VANTRO_ACCOUNT_CONFIG from construction on.
class Chain
{
public:
    Chain()
    {
        for (const char *name : {"root", "middle", "leaf", "stranger"}) {
            m_keys.insert(QLatin1String(name), vn::crypto::PrivateKey(vn::crypto::AbstractKey::RSA, 2048));
        }
        const QString path = m_folder.filePath(QStringLiteral("account.json"));
        const QJsonObject object =
            configuration(QStringLiteral("https://chain.example"), key("root").publicKey());
        m_installed = vn::test::writeFile(path, signedDocument(object, developmentConfigKey()));
        qputenv("VANTRO_ACCOUNT_CONFIG", QFile::encodeName(path));
    }
    bool isValid() const { return m_installed; }
    vn::crypto::PrivateKey key(const QString &name) const { return m_keys.value(name); }
    /// The identity record of @p id with its own key and @p parent (left out when undefined),
    /// signed by @p signer's key.
    QJsonObject identity(const QString &id, const QString &signer,
                         const QJsonValue &parent = QJsonValue::Undefined) const
    {
        const QJsonObject record{{"id", id},
                                 {"name", id.toUpper()},
                                 {"publicKey", QString::fromLatin1(key(id).publicKey().toPEM())},
                                 {"parent", parent}};
        return vn::crypto::JsonSignature::sign(record, key(signer));
    }
    /// "middle" signed by the root, then "leaf" signed by "middle".
    QJsonArray records() const { return {identity("middle", "root"), identity("leaf", "middle", "middle")}; }

private:
    QTemporaryDir m_folder;
    QHash<QString, vn::crypto::PrivateKey> m_keys;
    bool m_installed = false;
};

} // namespace trustfixture
