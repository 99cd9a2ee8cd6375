#pragma once

#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <QJsonObject>
#include <QList>
#include <QSharedDataPointer>
#include <QString>
#include <QStringList>

namespace vn::devservice {

class ScenarioData;

/// What the development service knows: users and their passwords, device keys, the account
/// identity chain below the development root, the token key and the resources it hands out.
///
/// A scenario is read from a JSON document (the format is documented in devservice/README.md) or
/// taken from the built-in demo. It is an implicitly shared, immutable value; keys that the
/// document does not name are generated once per process and reused by every later scenario.
class Scenario
{
public:
    struct User
    {
        QString username;
        QString password;
        bool mayImpersonate = false;
        /// The consumer record the service answers for this user: "id", "name", "email",
        /// "permissions", "roles".
        QJsonObject consumer;
    };

    struct Device
    {
        QString name;
        /// The user whose account a challenge-response login with this key opens.
        QString username;
        crypto::PublicKey publicKey;
        /// SHA-256 of the key's SubjectPublicKeyInfo in standard base64, as clients send it.
        QString fingerprint;
    };

    struct Identity
    {
        QString id;
        QString name;
        crypto::PrivateKey privateKey;
    };

    struct Resource
    {
        /// The unsigned envelope: "id", "type", "owner", "issuer", "payload".
        QJsonObject record;
        /// User names entitled to the resource; empty means every user.
        QStringList users;
        /// Served with its payload changed after signing, so that its signature does not verify: a
        /// forged record for clients to refuse.
        bool tampered = false;

        /// A "vantro.resource.Service" record whose payload names no "url": the development
        /// service plays that service itself and fills in the URL it listens on before signing.
        bool isPlayedService() const;
        /// The payload's "service" name; empty when there is none.
        QString serviceName() const;
    };

    /// An empty, invalid scenario.
    Scenario();
    Scenario(const Scenario &other);
    Scenario &operator=(const Scenario &other);
    ~Scenario();

    /// The built-in demo: users ada@example.com (who may impersonate) and bob@example.com, the
    /// demo device key, a chain of two account identities and resources of every kind.
    static Scenario demo();
    /// Reads a scenario document; relative key file names are taken from the document's folder.
    static Scenario fromFile(const QString &path, QString *errorMessage = nullptr);
    static Scenario fromJson(const QJsonObject &document, const QString &baseDirectory,
                             QString *errorMessage = nullptr);

    bool isValid() const;

    QList<User> users() const;
    QList<Device> devices() const;
    /// From the root's child down to the account's own identity.
    QList<Identity> identities() const;
    QList<Resource> resources() const;
    /// The key that signs access and service tokens.
    crypto::PrivateKey tokenKey() const;

private:
    QSharedDataPointer<ScenarioData> d;
};

} // namespace vn::devservice
