// Reading a scenario document: every member checked, and a message that names the member at fault.

#include "scenario_p.h"

#include "developmentkeys.h"

#include <QDir>
#include <QHash>
#include <QJsonArray>
#include <QMutex>
#include <QSet>
#include <QUuid>

#include <algorithm>

namespace vn::devservice {

namespace {

constexpr int DefaultIdentityBits = 3072;
constexpr int DefaultTokenKeyBits = 2048;

// Consumer identifiers that a document leaves out are derived from the user name, so that they
// stay the same from one start of the service to the next.
const QUuid ConsumerNamespace(QStringLiteral("{6f1b2a6c-3d0e-4c55-9a43-2f7e1c8b9d10}"));

// Generating RSA keys takes long (seconds for 3072 bits in a sanitizer build), and a test may load
// many scenarios: a key that a document does not name is generated once per process and purpose.
crypto::PrivateKey generatedKey(const QString &purpose, int bits)
{
    static QMutex mutex;
    static QHash<QString, crypto::PrivateKey> keys;
    const QString cacheKey = purpose + QLatin1Char('/') + QString::number(bits);
    QMutexLocker locker(&mutex);
    auto found = keys.constFind(cacheKey);
    if (found != keys.constEnd()) {
        return found.value();
    }
    crypto::PrivateKey key(crypto::AbstractKey::RSA, bits);
    if (key.isValid()) {
        keys.insert(cacheKey, key);
    }
    return key;
}

class ScenarioReader
{
public:
    explicit ScenarioReader(const QString &baseDirectory)
        : m_base(baseDirectory)
    {}

    bool read(const QJsonObject &document, ScenarioData &data)
    {
        return readUsers(document.value(QLatin1String("users")), data) &&
               readDevices(document.value(QLatin1String("devices")), data) &&
               readIdentities(document.value(QLatin1String("identities")), data) &&
               readTokenKey(document, data) &&
               readResources(document.value(QLatin1String("resources")), data);
    }

    QString error;

private:
    bool fail(const QString &where, const QString &what)
    {
        error = where + QLatin1String(": ") + what;
        return false;
    }

    static QString at(const char *list, int index)
    {
        return QLatin1String(list) + QLatin1Char('[') + QString::number(index) + QLatin1Char(']');
    }

    bool optionalString(const QJsonObject &object, const char *key, const QString &where, QString *value)
    {
        const QJsonValue found = object.value(QLatin1String(key));
        if (found.isUndefined()) {
            return true;
        }
        if (!found.isString()) {
            return fail(where + QLatin1Char('.') + QLatin1String(key), QStringLiteral("not a string"));
        }
        *value = found.toString();
        return true;
    }

    bool requiredString(const QJsonObject &object, const char *key, const QString &where, QString *value)
    {
        if (!object.value(QLatin1String(key)).isString() ||
            object.value(QLatin1String(key)).toString().isEmpty()) {
            return fail(where + QLatin1Char('.') + QLatin1String(key),
                        QStringLiteral("missing or not a non-empty string"));
        }
        *value = object.value(QLatin1String(key)).toString();
        return true;
    }

    bool list(const QJsonValue &value, const char *name, QJsonArray *array)
    {
        if (value.isUndefined()) {
            return true;
        }
        if (!value.isArray()) {
            return fail(QLatin1String(name), QStringLiteral("not an array"));
        }
        *array = value.toArray();
        return true;
    }

    bool element(const QJsonArray &array, int index, const char *name, QJsonObject *object)
    {
        if (!array.at(index).isObject()) {
            return fail(at(name, index), QStringLiteral("not an object"));
        }
        *object = array.at(index).toObject();
        return true;
    }

    QByteArray readKeyFile(const QString &name)
    {
        return DevelopmentKeys::readPemFile(QDir(m_base).filePath(name));
    }

    bool readUsers(const QJsonValue &value, ScenarioData &data)
    {
        QJsonArray array;
        if (!list(value, "users", &array)) {
            return false;
        }
        QSet<QString> names;
        QSet<QString> consumerIds;
        for (int index = 0; index < array.size(); ++index) {
            const QString where = at("users", index);
            QJsonObject entry;
            Scenario::User user;
            if (!element(array, index, "users", &entry) ||
                !requiredString(entry, "username", where, &user.username) ||
                !optionalString(entry, "password", where, &user.password)) {
                return false;
            }
            if (names.contains(user.username)) {
                return fail(where + QLatin1String(".username"), QStringLiteral("used twice"));
            }
            names.insert(user.username);
            const QJsonValue impersonate = entry.value(QLatin1String("mayImpersonate"));
            if (!impersonate.isUndefined() && !impersonate.isBool()) {
                return fail(where + QLatin1String(".mayImpersonate"), QStringLiteral("not a boolean"));
            }
            user.mayImpersonate = impersonate.toBool();
            if (!readConsumer(entry.value(QLatin1String("consumer")), where + QLatin1String(".consumer"),
                              &user)) {
                return false;
            }
            const QString consumerId = user.consumer.value(QLatin1String("id")).toString();
            if (consumerIds.contains(consumerId)) {
                return fail(where + QLatin1String(".consumer.id"), QStringLiteral("used twice"));
            }
            consumerIds.insert(consumerId);
            data.users.append(user);
        }
        return true;
    }

    bool readConsumer(const QJsonValue &value, const QString &where, Scenario::User *user)
    {
        if (!value.isUndefined() && !value.isObject()) {
            return fail(where, QStringLiteral("not an object"));
        }
        const QJsonObject entry = value.toObject();
        QString id = QUuid::createUuidV5(ConsumerNamespace, user->username).toString(QUuid::WithoutBraces);
        QString name = user->username;
        QString email = user->username;
        if (!optionalString(entry, "id", where, &id) || !optionalString(entry, "name", where, &name) ||
            !optionalString(entry, "email", where, &email)) {
            return false;
        }
        QJsonArray permissions;
        QJsonArray roles;
        if (!list(entry.value(QLatin1String("permissions")), "permissions", &permissions) ||
            !list(entry.value(QLatin1String("roles")), "roles", &roles)) {
            error = where + QLatin1Char('.') + error;
            return false;
        }
        for (const QJsonValue &permission : qAsConst(permissions)) {
            const double number = permission.toDouble(-1);
            if (!permission.isDouble() || number <= 0 || number > 0x7fffffff || number != qint64(number)) {
                return fail(where + QLatin1String(".permissions"), QStringLiteral("not a positive integer"));
            }
        }
        for (const QJsonValue &role : qAsConst(roles)) {
            if (!role.isString() || role.toString().isEmpty()) {
                return fail(where + QLatin1String(".roles"), QStringLiteral("not a non-empty string"));
            }
        }
        user->consumer = QJsonObject{
            {QStringLiteral("id"), id},       {QStringLiteral("name"), name},
            {QStringLiteral("email"), email}, {QStringLiteral("permissions"), permissions},
            {QStringLiteral("roles"), roles},
        };
        return true;
    }

    bool readDevices(const QJsonValue &value, ScenarioData &data)
    {
        QJsonArray array;
        if (!list(value, "devices", &array)) {
            return false;
        }
        QSet<QString> fingerprints;
        for (int index = 0; index < array.size(); ++index) {
            const QString where = at("devices", index);
            QJsonObject entry;
            Scenario::Device device;
            QString publicKey;
            QString keyFile;
            if (!element(array, index, "devices", &entry) ||
                !requiredString(entry, "user", where, &device.username) ||
                !optionalString(entry, "name", where, &device.name) ||
                !optionalString(entry, "publicKey", where, &publicKey) ||
                !optionalString(entry, "keyFile", where, &keyFile)) {
                return false;
            }
            if (!hasUser(data, device.username)) {
                return fail(where + QLatin1String(".user"), QStringLiteral("names no user"));
            }
            if (publicKey.isEmpty() == keyFile.isEmpty()) {
                return fail(where, QStringLiteral("needs exactly one of \"publicKey\" and \"keyFile\""));
            }
            const QByteArray pem = keyFile.isEmpty() ? publicKey.toLatin1() : readKeyFile(keyFile);
            device.publicKey = crypto::PublicKey(pem);
            if (!device.publicKey.isValid()) {
                // A key file may hold the device's private key; only its public half is kept.
                device.publicKey = crypto::PrivateKey(pem).publicKey();
            }
            if (!device.publicKey.isValid()) {
                return fail(where, QStringLiteral("no usable RSA key"));
            }
            device.fingerprint =
                QString::fromLatin1(device.publicKey.fingerPrint(QCryptographicHash::Sha256).toBase64());
            if (fingerprints.contains(device.fingerprint)) {
                return fail(where, QStringLiteral("key used twice"));
            }
            fingerprints.insert(device.fingerprint);
            data.devices.append(device);
        }
        return true;
    }

    bool readIdentities(const QJsonValue &value, ScenarioData &data)
    {
        QJsonArray array;
        if (!list(value, "identities", &array)) {
            return false;
        }
        if (array.isEmpty()) {
            return fail(QStringLiteral("identities"),
                        QStringLiteral("at least the account's own identity is needed"));
        }
        QSet<QString> ids{DevelopmentKeys::rootIdentityUuid()};
        for (int index = 0; index < array.size(); ++index) {
            const QString where = at("identities", index);
            QJsonObject entry;
            Scenario::Identity identity;
            QString keyFile;
            if (!element(array, index, "identities", &entry) ||
                !requiredString(entry, "id", where, &identity.id) ||
                !optionalString(entry, "name", where, &identity.name) ||
                !optionalString(entry, "keyFile", where, &keyFile)) {
                return false;
            }
            if (ids.contains(identity.id)) {
                return fail(where + QLatin1String(".id"), QStringLiteral("used twice or taken by the root"));
            }
            ids.insert(identity.id);
            if (!keyFile.isEmpty()) {
                identity.privateKey = crypto::PrivateKey(readKeyFile(keyFile));
            } else {
                const int bits = entry.value(QLatin1String("bits")).toInt(DefaultIdentityBits);
                if (bits < 2048 || bits > 8192) {
                    return fail(where + QLatin1String(".bits"), QStringLiteral("not from 2048 to 8192"));
                }
                identity.privateKey = generatedKey(QLatin1String("identity:") + identity.id, bits);
            }
            if (!identity.privateKey.isValid()) {
                return fail(where, QStringLiteral("no usable private key"));
            }
            data.identities.append(identity);
        }
        return true;
    }

    bool readTokenKey(const QJsonObject &document, ScenarioData &data)
    {
        QString keyFile;
        if (!optionalString(document, "tokenKeyFile", QStringLiteral("scenario"), &keyFile)) {
            return false;
        }
        data.tokenKey = keyFile.isEmpty() ? generatedKey(QStringLiteral("tokens"), DefaultTokenKeyBits)
                                          : crypto::PrivateKey(readKeyFile(keyFile));
        if (!data.tokenKey.isValid()) {
            return fail(QStringLiteral("tokenKeyFile"), QStringLiteral("no usable private key"));
        }
        return true;
    }

    bool readResources(const QJsonValue &value, ScenarioData &data)
    {
        QJsonArray array;
        if (!list(value, "resources", &array)) {
            return false;
        }
        QSet<QString> identityIds{DevelopmentKeys::rootIdentityUuid()};
        for (const Scenario::Identity &identity : qAsConst(data.identities)) {
            identityIds.insert(identity.id);
        }
        const QString ownIdentity = data.identities.constLast().id;
        QSet<QString> ids;
        QSet<QString> playedNames;
        for (int index = 0; index < array.size(); ++index) {
            const QString where = at("resources", index);
            QJsonObject entry;
            QString id;
            QString type;
            QString issuer = ownIdentity;
            if (!element(array, index, "resources", &entry) || !requiredString(entry, "id", where, &id) ||
                !requiredString(entry, "type", where, &type) ||
                !optionalString(entry, "issuer", where, &issuer)) {
                return false;
            }
            QString owner = issuer;
            if (!optionalString(entry, "owner", where, &owner)) {
                return false;
            }
            if (ids.contains(id)) {
                return fail(where + QLatin1String(".id"), QStringLiteral("used twice"));
            }
            ids.insert(id);
            if (!identityIds.contains(issuer)) {
                return fail(where + QLatin1String(".issuer"),
                            QStringLiteral("names no identity of the chain"));
            }
            Scenario::Resource resource;
            QJsonArray users;
            if (!list(entry.value(QLatin1String("users")), "users", &users)) {
                error = where + QLatin1Char('.') + error;
                return false;
            }
            for (const QJsonValue &user : qAsConst(users)) {
                if (!hasUser(data, user.toString())) {
                    return fail(where + QLatin1String(".users"), QStringLiteral("names an unknown user"));
                }
                resource.users.append(user.toString());
            }
            const QJsonValue tampered = entry.value(QLatin1String("tampered"));
            if (!tampered.isUndefined() && !tampered.isBool()) {
                return fail(where + QLatin1String(".tampered"), QStringLiteral("not a boolean"));
            }
            resource.tampered = tampered.toBool();
            const QJsonValue payload = entry.value(QLatin1String("payload"));
            resource.record = QJsonObject{
                {QStringLiteral("id"), id},
                {QStringLiteral("type"), type},
                {QStringLiteral("owner"), owner},
                {QStringLiteral("issuer"), issuer},
                {QStringLiteral("payload"), payload.isUndefined() ? QJsonValue(QJsonObject()) : payload},
            };
            if (resource.isPlayedService()) {
                // The name is how clients' tokens and the service's listeners tell it apart.
                if (resource.serviceName().isEmpty() || playedNames.contains(resource.serviceName())) {
                    return fail(where + QLatin1String(".payload.service"),
                                QStringLiteral("a played service needs a name of its own"));
                }
                playedNames.insert(resource.serviceName());
            }
            data.resources.append(resource);
        }
        return true;
    }

    static bool hasUser(const ScenarioData &data, const QString &username)
    {
        return std::any_of(data.users.cbegin(), data.users.cend(),
                           [&](const Scenario::User &user) { return user.username == username; });
    }

    QString m_base;
};

} // namespace

bool readScenario(const QJsonObject &document, const QString &baseDirectory, ScenarioData *data,
                  QString *error)
{
    ScenarioReader reader(baseDirectory);
    if (!reader.read(document, *data)) {
        *error = reader.error;
        return false;
    }
    return true;
}

} // namespace vn::devservice
