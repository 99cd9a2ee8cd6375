#pragma once

#include <VantroCrypto/privatekey.h>

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// Signed account configurations for tests. Only the development configuration key makes one that
// the library accepts; its path comes from the build (VANTRO_DEV_CONFIG_KEY).
namespace trustfixture {

/// The development configuration-signing key, read from the source tree.
vn::crypto::PrivateKey developmentConfigKey();

/// A configuration naming @p serviceUrl and a root identity "root" with @p rootKey.
QJsonObject configuration(const QString &serviceUrl, const vn::crypto::PublicKey &rootKey);

/// @p object signed with @p key, as compact JSON bytes.
QByteArray signedDocument(const QJsonObject &object, const vn::crypto::PrivateKey &key);

/// Writes @p content to @p path, replacing the file; false on failure.
bool writeFile(const QString &path, const QByteArray &content);

} // namespace trustfixture
