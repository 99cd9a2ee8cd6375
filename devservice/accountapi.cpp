#include "accountapi.h"

#include "developmentkeys.h"
#include "logging_p.h"
#include "tokensigner.h"

#include <VantroCrypto/jsonsignature.h>

#include <QDateTime>
#include <QDeadlineTimer>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QRandomGenerator>
#include <QSet>
#include <QUuid>

#include <algorithm>

namespace vn::devservice {

namespace {

constexpr int ChallengeSize = 32;
// Unanswered challenges are kept until they expire; past this many the service refuses new ones
// rather than grow without bound.
constexpr int MaximumPendingChallenges = 10000;

const QString ServiceResourceType = QStringLiteral("vantro.resource.Service");

QString newIdentifier()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QByteArray compact(const QJsonValue &value)
{
    return value.isArray() ? QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact)
                           : QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
}

AccountApi::Response answer(int status, const QJsonValue &body)
{
    AccountApi::Response response;
    response.status = status;
    response.body = compact(body);
    return response;
}

AccountApi::Response failure(int status, const QString &message)
{
    return answer(status, QJsonObject{{QStringLiteral("error"), message}});
}

// Secrets are compared in time that does not depend on where they differ.
bool equalSecrets(const QByteArray &first, const QByteArray &second)
{
    if (first.size() != second.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (int index = 0; index < first.size(); ++index) {
        difference |= static_cast<unsigned char>(first.at(index) ^ second.at(index));
    }
    return difference == 0;
}

// The optional members of a request body: absent is fine, a wrong type is a bad request.
bool optionalString(const QJsonObject &body, const char *key, QString *value)
{
    const QJsonValue found = body.value(QLatin1String(key));
    if (found.isUndefined()) {
        return true;
    }
    *value = found.toString();
    return found.isString();
}

bool optionalBool(const QJsonObject &body, const char *key, bool *value)
{
    const QJsonValue found = body.value(QLatin1String(key));
    *value = found.toBool();
    return found.isUndefined() || found.isBool();
}

bool requiredString(const QJsonObject &body, const char *key, QString *value)
{
    const QJsonValue found = body.value(QLatin1String(key));
    *value = found.toString();
    return found.isString();
}

struct Entitlement
{
    QString id;
    QString type;
    QJsonObject envelope;
    QSet<QString> users;

    bool entitles(const QString &username) const { return users.isEmpty() || users.contains(username); }
};

// A scenario as it is served: looked up by user name and key fingerprint, its identity records and
// resources signed once.
struct SignedScenario
{
    explicit SignedScenario(const Scenario &source)
        : scenario(source)
        , signer(source.tokenKey())
    {}

    Scenario scenario;
    QHash<QString, Scenario::User> users;
    QHash<QString, Scenario::Device> devices;
    QJsonArray identityChain;
    QList<Entitlement> resources;
    TokenSigner signer;
};

struct Login
{
    quint64 sequence = 0;
    QString id;
    QByteArray token;
    QString username;
    QString authenticatedAs;
    QString authType;
    QString hostInfo;
    bool persistent = false;
    QDateTime since;
    qint64 expires = 0; // seconds since the epoch

    QJsonObject record() const
    {
        QJsonObject object{
            {QStringLiteral("id"), id},
            {QStringLiteral("hostInfo"), hostInfo},
            {QStringLiteral("since"), since.toString(Qt::ISODate)},
            {QStringLiteral("persistent"), persistent},
            {QStringLiteral("authType"), authType},
            {QStringLiteral("user"), username},
            {QStringLiteral("expires"),
             QDateTime::fromSecsSinceEpoch(expires, Qt::UTC).toString(Qt::ISODate)},
        };
        if (authenticatedAs != username) {
            object.insert(QStringLiteral("authenticatedAs"), authenticatedAs);
        }
        return object;
    }
};

struct Challenge
{
    QByteArray secret;
    QString username;
    QString device;
    QDeadlineTimer deadline;
};

std::shared_ptr<const SignedScenario> signScenario(const Scenario &scenario,
                                                   const QHash<QString, QUrl> &playedUrls)
{
    auto signedScenario = std::make_shared<SignedScenario>(scenario);
    for (const Scenario::User &user : scenario.users()) {
        signedScenario->users.insert(user.username, user);
    }
    for (const Scenario::Device &device : scenario.devices()) {
        signedScenario->devices.insert(device.fingerprint, device);
    }

    // Each identity record is signed by the key of the one above it, the first by the root.
    QHash<QString, crypto::PrivateKey> keys{
        {DevelopmentKeys::rootIdentityUuid(), DevelopmentKeys::rootIdentityKey()}};
    QString parent = DevelopmentKeys::rootIdentityUuid();
    for (const Scenario::Identity &identity : scenario.identities()) {
        QByteArray pem = identity.privateKey.publicKey().toPEM();
        const QJsonObject record{
            {QStringLiteral("id"), identity.id},
            {QStringLiteral("name"), identity.name},
            {QStringLiteral("publicKey"), QString::fromLatin1(pem)},
            {QStringLiteral("parent"), parent},
        };
        const QJsonObject signedRecord = crypto::JsonSignature::sign(record, keys.value(parent));
        if (signedRecord.isEmpty()) {
            qCCritical(lcDevService, "Cannot sign the identity record %s", qPrintable(identity.id));
            return nullptr;
        }
        signedScenario->identityChain.append(signedRecord);
        keys.insert(identity.id, identity.privateKey);
        parent = identity.id;
    }

    for (const Scenario::Resource &resource : scenario.resources()) {
        const QString issuer = resource.record.value(QLatin1String("issuer")).toString();
        Entitlement entitlement;
        entitlement.id = resource.record.value(QLatin1String("id")).toString();
        entitlement.type = resource.record.value(QLatin1String("type")).toString();
        QJsonObject record = resource.record;
        if (resource.isPlayedService() && playedUrls.contains(entitlement.id)) {
            // Part of what is signed: the client trusts the URL because the record verifies.
            QJsonObject payload = record.value(QLatin1String("payload")).toObject();
            payload.insert(QStringLiteral("url"), playedUrls.value(entitlement.id).toString());
            record.insert(QStringLiteral("payload"), payload);
        }
        entitlement.envelope = crypto::JsonSignature::sign(record, keys.value(issuer));
        entitlement.users = QSet<QString>(resource.users.cbegin(), resource.users.cend());
        if (entitlement.envelope.isEmpty()) {
            qCCritical(lcDevService, "Cannot sign the resource %s", qPrintable(entitlement.id));
            return nullptr;
        }
        if (resource.tampered) {
            entitlement.envelope.insert(QStringLiteral("payload"),
                                        QJsonObject{{QStringLiteral("tampered"), true}});
        }
        signedScenario->resources.append(entitlement);
    }
    if (!signedScenario->signer.isValid()) {
        qCCritical(lcDevService, "The scenario's token key cannot sign tokens");
        return nullptr;
    }
    return signedScenario;
}

} // namespace

class AccountApiPrivate
{
public:
    using Response = AccountApi::Response;

    enum class Route { CurrentLogin, Consumer, Identity, Entitled, ServiceToken, Logins, OneLogin };

    Response authenticate(const QByteArray &body);
    Response credentialLogin(const QJsonObject &body);
    Response issueChallenge(const QJsonObject &body);
    Response answerChallenge(const QJsonObject &body);
    Response passwordReset(const QByteArray &body);
    Response serve(Route route, const QString &argument, const QByteArray &method, const Login &login,
                   const SignedScenario &scenario);
    Response serviceToken(const QString &resourceId, const Login &login, const SignedScenario &scenario);

    Response createLogin(const std::shared_ptr<const SignedScenario> &scenario, const QString &username,
                         const QString &authenticatedAs, const QString &authType, const QString &hostInfo,
                         bool persistent);
    bool authorize(const QByteArray &authorization, Login *login,
                   std::shared_ptr<const SignedScenario> *scenario);
    std::shared_ptr<const SignedScenario> currentScenario() const;
    void removeLoginLocked(const QString &id);

    mutable QMutex mutex;
    std::shared_ptr<const SignedScenario> scenario;
    QHash<QString, Login> logins;
    QHash<QByteArray, QString> loginByToken;
    QHash<QString, Challenge> challenges;
    quint64 loginSequence = 0;
    QString issuer = QStringLiteral("vantro-account-devservice");
    int tokenLifetime = AccountApi::DefaultTokenLifetime;
    int serviceTokenLifetime = AccountApi::DefaultServiceTokenLifetime;
    int challengeLifetime = AccountApi::DefaultChallengeLifetime;
};

std::shared_ptr<const SignedScenario> AccountApiPrivate::currentScenario() const
{
    QMutexLocker locker(&mutex);
    return scenario;
}

void AccountApiPrivate::removeLoginLocked(const QString &id)
{
    const auto found = logins.find(id);
    if (found != logins.end()) {
        loginByToken.remove(found->token);
        logins.erase(found);
    }
}

AccountApi::Response AccountApiPrivate::authenticate(const QByteArray &body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return failure(400, QStringLiteral("the body must be a JSON object"));
    }
    const QJsonObject object = document.object();
    const QString authType = object.value(QLatin1String("authType")).toString();
    if (authType == QLatin1String("credentials")) {
        return credentialLogin(object);
    }
    if (authType == QLatin1String("challenge-response")) {
        const QString phase = object.value(QLatin1String("phase")).toString();
        if (phase == QLatin1String("challenge")) {
            return issueChallenge(object);
        }
        if (phase == QLatin1String("response")) {
            return answerChallenge(object);
        }
        return failure(400, QStringLiteral("\"phase\" must be \"challenge\" or \"response\""));
    }
    return failure(400, QStringLiteral("\"authType\" must be \"credentials\" or \"challenge-response\""));
}

AccountApi::Response AccountApiPrivate::credentialLogin(const QJsonObject &body)
{
    QString username;
    QString password;
    QString hostInfo;
    QString impersonate;
    bool persistent = false;
    if (!requiredString(body, "username", &username) || !requiredString(body, "password", &password) ||
        !optionalString(body, "hostInfo", &hostInfo) || !optionalString(body, "impersonate", &impersonate) ||
        !optionalBool(body, "persistent", &persistent)) {
        return failure(400, QStringLiteral("malformed credentials"));
    }
    const std::shared_ptr<const SignedScenario> current = currentScenario();
    const auto user = current->users.constFind(username.trimmed());
    if (user == current->users.constEnd() || !equalSecrets(user->password.toUtf8(), password.toUtf8())) {
        return failure(401, QStringLiteral("unknown user name or wrong password"));
    }
    QString actingUser = user->username;
    impersonate = impersonate.trimmed();
    if (!impersonate.isEmpty() && impersonate != user->username) {
        if (!user->mayImpersonate || !current->users.contains(impersonate)) {
            return failure(403, QStringLiteral("impersonation is not permitted"));
        }
        actingUser = impersonate;
    }
    return createLogin(current, actingUser, user->username, QStringLiteral("credentials"), hostInfo,
                       persistent);
}

AccountApi::Response AccountApiPrivate::issueChallenge(const QJsonObject &body)
{
    QString fingerprint;
    if (!requiredString(body, "fingerprint", &fingerprint)) {
        return failure(400, QStringLiteral("\"fingerprint\" must be a string"));
    }
    const std::shared_ptr<const SignedScenario> current = currentScenario();
    const auto device = current->devices.constFind(fingerprint);
    if (device == current->devices.constEnd()) {
        return failure(401, QStringLiteral("unknown key"));
    }
    QByteArray secret(ChallengeSize, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32 *>(secret.data()), ChallengeSize / 4);
    // A copy of its own: key operations record their outcome in the key value they run on.
    const crypto::PublicKey key = device->publicKey;
    const QByteArray encrypted = key.encrypt(secret);
    if (encrypted.isEmpty()) {
        return failure(500, QStringLiteral("cannot encrypt the challenge"));
    }

    Challenge challenge;
    challenge.secret = secret;
    challenge.username = device->username;
    challenge.device = device->name.isEmpty() ? device->fingerprint : device->name;
    const QString id = newIdentifier();
    {
        QMutexLocker locker(&mutex);
        challenge.deadline = QDeadlineTimer(challengeLifetime);
        for (auto it = challenges.begin(); it != challenges.end();) {
            it = it->deadline.hasExpired() ? challenges.erase(it) : std::next(it);
        }
        if (challenges.size() >= MaximumPendingChallenges) {
            return failure(503, QStringLiteral("too many pending challenges"));
        }
        challenges.insert(id, challenge);
    }
    return answer(200, QJsonObject{
                           {QStringLiteral("id"), id},
                           {QStringLiteral("challenge"), QString::fromLatin1(encrypted.toBase64())},
                       });
}

AccountApi::Response AccountApiPrivate::answerChallenge(const QJsonObject &body)
{
    QString id;
    QString response;
    QString hostInfo;
    bool persistent = false;
    if (!requiredString(body, "challengeId", &id) || !requiredString(body, "challenge", &response) ||
        !optionalString(body, "hostInfo", &hostInfo) || !optionalBool(body, "persistent", &persistent)) {
        return failure(400, QStringLiteral("malformed challenge response"));
    }
    Challenge challenge;
    std::shared_ptr<const SignedScenario> current;
    {
        // A challenge is answered once: whatever the answer, it is gone afterwards.
        QMutexLocker locker(&mutex);
        const auto found = challenges.find(id);
        if (found == challenges.end()) {
            return failure(401, QStringLiteral("unknown or expired challenge"));
        }
        challenge = found.value();
        challenges.erase(found);
        current = scenario;
    }
    if (challenge.deadline.hasExpired()) {
        return failure(401, QStringLiteral("unknown or expired challenge"));
    }
    if (!equalSecrets(QByteArray::fromBase64(response.toLatin1()), challenge.secret)) {
        return failure(401, QStringLiteral("wrong answer"));
    }
    return createLogin(current, challenge.username, challenge.device, QStringLiteral("challenge-response"),
                       hostInfo, persistent);
}

AccountApi::Response AccountApiPrivate::passwordReset(const QByteArray &body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    QString username;
    QString language;
    if (error.error != QJsonParseError::NoError || !document.isObject() ||
        !requiredString(document.object(), "username", &username) ||
        !optionalString(document.object(), "language", &language)) {
        return failure(400, QStringLiteral("the body must name a \"username\""));
    }
    if (!currentScenario()->users.contains(username)) {
        return failure(404, QStringLiteral("unknown user name"));
    }
    qCInfo(lcDevService, "A password reset was requested (language \"%s\")", qPrintable(language));
    return answer(
        201, QJsonObject{{QStringLiteral("username"), username}, {QStringLiteral("language"), language}});
}

AccountApi::Response AccountApiPrivate::createLogin(const std::shared_ptr<const SignedScenario> &current,
                                                    const QString &username, const QString &authenticatedAs,
                                                    const QString &authType, const QString &hostInfo,
                                                    bool persistent)
{
    Login login;
    login.id = newIdentifier();
    login.username = username;
    login.authenticatedAs = authenticatedAs;
    login.authType = authType;
    login.hostInfo = hostInfo;
    login.persistent = persistent;
    login.since = QDateTime::currentDateTimeUtc();
    const qint64 now = login.since.toSecsSinceEpoch();
    QString tokenIssuer;
    {
        QMutexLocker locker(&mutex);
        login.expires = now + tokenLifetime;
        tokenIssuer = issuer;
    }
    const QJsonObject claims{
        {QStringLiteral("iss"), tokenIssuer},
        {QStringLiteral("sub"), current->users.value(username).consumer.value(QLatin1String("id"))},
        {QStringLiteral("aud"), QStringLiteral("vantro-account")},
        {QStringLiteral("iat"), now},
        {QStringLiteral("exp"), login.expires},
        {QStringLiteral("sid"), login.id},
        {QStringLiteral("jti"), newIdentifier()},
    };
    login.token = current->signer.sign(claims);
    if (login.token.isEmpty()) {
        return failure(500, QStringLiteral("cannot sign the token"));
    }

    QMutexLocker locker(&mutex);
    if (scenario != current) {
        // The scenario was replaced while this login was being made: it belongs to no scenario.
        return failure(503, QStringLiteral("the scenario changed, try again"));
    }
    for (auto it = logins.begin(); it != logins.end();) {
        if (it->expires <= now) {
            loginByToken.remove(it->token);
            it = logins.erase(it);
        } else {
            ++it;
        }
    }
    login.sequence = ++loginSequence;
    logins.insert(login.id, login);
    loginByToken.insert(login.token, login.id);
    return answer(200, QJsonObject{{QStringLiteral("token"), QString::fromLatin1(login.token)}});
}

bool AccountApiPrivate::authorize(const QByteArray &authorization, Login *login,
                                  std::shared_ptr<const SignedScenario> *current)
{
    const int space = authorization.indexOf(' ');
    if (space < 0 || authorization.left(space).toLower() != "bearer") {
        return false;
    }
    const QByteArray token = authorization.mid(space + 1).trimmed();
    QMutexLocker locker(&mutex);
    const auto id = loginByToken.constFind(token);
    if (id == loginByToken.constEnd()) {
        return false;
    }
    const Login found = logins.value(id.value());
    if (found.expires <= QDateTime::currentSecsSinceEpoch()) {
        removeLoginLocked(found.id);
        return false;
    }
    *login = found;
    *current = scenario;
    return true;
}

AccountApi::Response AccountApiPrivate::serve(Route route, const QString &argument, const QByteArray &method,
                                              const Login &login, const SignedScenario &current)
{
    switch (route) {
    case Route::CurrentLogin:
        if (method == "DELETE") {
            QMutexLocker locker(&mutex);
            removeLoginLocked(login.id);
        }
        return answer(200, login.record());
    case Route::Consumer:
        return answer(200, current.users.value(login.username).consumer);
    case Route::Identity:
        return answer(200, current.identityChain);
    case Route::Entitled: {
        QJsonArray resources;
        for (const Entitlement &resource : current.resources) {
            if (resource.entitles(login.username)) {
                resources.append(resource.envelope);
            }
        }
        return answer(200, resources);
    }
    case Route::ServiceToken:
        return serviceToken(argument, login, current);
    case Route::Logins: {
        QList<Login> own;
        {
            QMutexLocker locker(&mutex);
            for (const Login &other : qAsConst(logins)) {
                if (other.username == login.username) {
                    own.append(other);
                }
            }
        }
        std::sort(own.begin(), own.end(),
                  [](const Login &first, const Login &second) { return first.sequence < second.sequence; });
        QJsonArray records;
        for (const Login &other : qAsConst(own)) {
            records.append(other.record());
        }
        return answer(200, records);
    }
    case Route::OneLogin: {
        QMutexLocker locker(&mutex);
        const auto found = logins.constFind(argument);
        // Another user's login is answered exactly like one that does not exist.
        if (found == logins.constEnd() || found->username != login.username) {
            return failure(404, QStringLiteral("no such login"));
        }
        const QJsonObject record = found->record();
        removeLoginLocked(argument);
        return answer(200, record);
    }
    }
    return failure(404, QStringLiteral("not found"));
}

AccountApi::Response AccountApiPrivate::serviceToken(const QString &resourceId, const Login &login,
                                                     const SignedScenario &current)
{
    const auto resource = std::find_if(
        current.resources.cbegin(), current.resources.cend(), [&](const Entitlement &entitlement) {
            return entitlement.id == resourceId && entitlement.type == ServiceResourceType &&
                   entitlement.entitles(login.username);
        });
    if (resource == current.resources.cend()) {
        return failure(404, QStringLiteral("no such service"));
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    QString tokenIssuer;
    int lifetime = 0;
    {
        QMutexLocker locker(&mutex);
        tokenIssuer = issuer;
        lifetime = serviceTokenLifetime;
    }
    const QJsonObject payload = resource->envelope.value(QLatin1String("payload")).toObject();
    const QJsonObject claims{
        {QStringLiteral("iss"), tokenIssuer},
        {QStringLiteral("sub"), current.users.value(login.username).consumer.value(QLatin1String("id"))},
        {QStringLiteral("aud"), payload.value(QLatin1String("service"))},
        {QStringLiteral("iat"), now},
        {QStringLiteral("exp"), now + lifetime},
        {QStringLiteral("jti"), newIdentifier()},
    };
    const QByteArray token = current.signer.sign(claims);
    if (token.isEmpty()) {
        return failure(500, QStringLiteral("cannot sign the token"));
    }
    return answer(200, QJsonObject{{QStringLiteral("token"), QString::fromLatin1(token)}});
}

AccountApi::AccountApi()
    : d(std::make_unique<AccountApiPrivate>())
{}

AccountApi::~AccountApi() = default;

bool AccountApi::setScenario(const Scenario &scenario, const QHash<QString, QUrl> &playedUrls)
{
    if (!scenario.isValid()) {
        return false;
    }
    std::shared_ptr<const SignedScenario> signedScenario = signScenario(scenario, playedUrls);
    if (!signedScenario) {
        return false;
    }
    QMutexLocker locker(&d->mutex);
    d->scenario = std::move(signedScenario);
    d->logins.clear();
    d->loginByToken.clear();
    d->challenges.clear();
    return true;
}

Scenario AccountApi::scenario() const
{
    const std::shared_ptr<const SignedScenario> current = d->currentScenario();
    return current ? current->scenario : Scenario();
}

bool AccountApi::setPlayedServiceUrls(const QHash<QString, QUrl> &playedUrls)
{
    const std::shared_ptr<const SignedScenario> current = d->currentScenario();
    std::shared_ptr<const SignedScenario> resigned =
        current ? signScenario(current->scenario, playedUrls) : nullptr;
    QMutexLocker locker(&d->mutex);
    // A scenario set meanwhile was signed with URLs of its own.
    if (!resigned || d->scenario != current) {
        return false;
    }
    d->scenario = std::move(resigned);
    return true;
}

void AccountApi::setIssuer(const QString &issuer)
{
    QMutexLocker locker(&d->mutex);
    d->issuer = issuer;
}

void AccountApi::setTokenLifetime(int seconds)
{
    QMutexLocker locker(&d->mutex);
    d->tokenLifetime = seconds;
}

int AccountApi::tokenLifetime() const
{
    QMutexLocker locker(&d->mutex);
    return d->tokenLifetime;
}

void AccountApi::setServiceTokenLifetime(int seconds)
{
    QMutexLocker locker(&d->mutex);
    d->serviceTokenLifetime = seconds;
}

int AccountApi::serviceTokenLifetime() const
{
    QMutexLocker locker(&d->mutex);
    return d->serviceTokenLifetime;
}

void AccountApi::setChallengeLifetime(int milliseconds)
{
    QMutexLocker locker(&d->mutex);
    d->challengeLifetime = milliseconds;
}

int AccountApi::challengeLifetime() const
{
    QMutexLocker locker(&d->mutex);
    return d->challengeLifetime;
}

QJsonArray AccountApi::identityChain() const
{
    const std::shared_ptr<const SignedScenario> current = d->currentScenario();
    return current ? current->identityChain : QJsonArray();
}

QJsonArray AccountApi::logins() const
{
    QList<Login> all;
    {
        QMutexLocker locker(&d->mutex);
        all = d->logins.values();
    }
    std::sort(all.begin(), all.end(),
              [](const Login &first, const Login &second) { return first.sequence < second.sequence; });
    QJsonArray records;
    for (const Login &login : qAsConst(all)) {
        records.append(login.record());
    }
    return records;
}

AccountApi::Response AccountApi::handle(const Request &request)
{
    using Route = AccountApiPrivate::Route;
    static const QString prefix = QStringLiteral("api/v1/");
    if (!request.path.startsWith(prefix) || !d->currentScenario()) {
        return failure(404, QStringLiteral("not found"));
    }
    const QString path = request.path.mid(prefix.size());
    auto allow = [](const QList<QByteArray> &methods) {
        Response response = failure(405, QStringLiteral("method not allowed"));
        response.headers.append({QByteArrayLiteral("Allow"), methods.join(", ")});
        return response;
    };

    if (path == QLatin1String("authenticate")) {
        return request.method == "POST" ? d->authenticate(request.body) : allow({"POST"});
    }
    if (path == QLatin1String("password-reset")) {
        return request.method == "POST" ? d->passwordReset(request.body) : allow({"POST"});
    }

    // One path segment after "tokens/" or "logins/" is the argument.
    auto argumentOf = [&](QLatin1String parent, QString *argument) {
        if (!path.startsWith(parent) || path.size() == parent.size() ||
            path.indexOf(QLatin1Char('/'), parent.size()) >= 0) {
            return false;
        }
        *argument = path.mid(parent.size());
        return true;
    };
    Route route;
    QString argument;
    QList<QByteArray> methods{"GET"};
    if (path == QLatin1String("logins/current")) {
        route = Route::CurrentLogin;
        methods = {"GET", "DELETE"};
    } else if (path == QLatin1String("consumer")) {
        route = Route::Consumer;
    } else if (path == QLatin1String("account/identity")) {
        route = Route::Identity;
    } else if (path == QLatin1String("entitled")) {
        route = Route::Entitled;
    } else if (path == QLatin1String("logins")) {
        route = Route::Logins;
    } else if (argumentOf(QLatin1String("tokens/"), &argument)) {
        route = Route::ServiceToken;
    } else if (argumentOf(QLatin1String("logins/"), &argument)) {
        route = Route::OneLogin;
        methods = {"DELETE"};
    } else {
        return failure(404, QStringLiteral("not found"));
    }
    if (!methods.contains(request.method)) {
        return allow(methods);
    }

    Login login;
    std::shared_ptr<const SignedScenario> current;
    if (!d->authorize(request.authorization, &login, &current)) {
        Response response = failure(401, QStringLiteral("a valid bearer token is required"));
        response.headers.append({QByteArrayLiteral("WWW-Authenticate"), QByteArrayLiteral("Bearer")});
        return response;
    }
    return d->serve(route, argument, request.method, login, *current);
}

} // namespace vn::devservice
