#pragma once

#include <VantroCrypto/privatekey.h>

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>

// Signed account configurations and identity chains for tests. Only the development configuration
// key makes a configuration that the library accepts; its path comes from the build.
namespace trustfixture {

vn::crypto::PrivateKey developmentConfigKey();

/// A configuration naming @p serviceUrl and a root identity "root" ("Test Root") with @p rootKey.
QJsonObject configuration(const QString &serviceUrl, const vn::crypto::PublicKey &rootKey);

/// @p object signed with @p key, as compact JSON bytes.
QByteArray signedDocument(const QJsonObject &object, const vn::crypto::PrivateKey &key);

/// Writes @p content to @p path, replacing the file; false on failure.
bool writeFile(const QString &path, const QByteArray &content);

/// Keys "root", "middle", "leaf" and "stranger", and a configuration whose root identity holds the
/// "root" key, signed and named in VANTRO_ACCOUNT_CONFIG from construction on.
class Chain
{
public:
    Chain();
    bool isValid() const { return m_installed; }
    vn::crypto::PrivateKey key(const QString &name) const { return m_keys.value(name); }
    /// The identity record of @p id with its own key and @p parent, signed by @p signer's key.
    QJsonObject identity(const QString &id, const QString &signer,
                         const QJsonValue &parent = QJsonValue::Undefined) const;
    /// "middle" signed by the root, then "leaf" signed by "middle".
    QJsonArray records() const;

private:
    QTemporaryDir m_folder;
    QHash<QString, vn::crypto::PrivateKey> m_keys;
    bool m_installed = false;
};

} // namespace trustfixture
