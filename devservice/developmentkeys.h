#pragma once

#include <VantroCrypto/privatekey.h>

#include <QJsonObject>
#include <QString>

namespace vn::devservice {

/// The development trust anchors compiled into the service: the key that signs account
/// configurations and the root identity's key. Both are development keys whose private halves are
/// public in the repository; the library's built-in configuration trusts them and nothing else
/// should.
class DevelopmentKeys
{
public:
    DevelopmentKeys() = delete;

    /// The identifier that the root identity record carries ("root").
    static QString rootIdentityUuid();
    static QString rootIdentityName();

    /// Loaded once per process; invalid only when the built-in key files are damaged.
    static crypto::PrivateKey configurationKey();
    static crypto::PrivateKey rootIdentityKey();

    /// The root identity record as account configurations carry it: "uuid", "name" and
    /// "publicKey" (PEM text without a trailing line break).
    static QJsonObject rootIdentity();

    /// Reads a PEM file (Qt resource paths included) of at most 64 KiB; empty when unreadable.
    static QByteArray readPemFile(const QString &path);
};

} // namespace vn::devservice
