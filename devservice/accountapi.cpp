// Every endpoint of the account service's API: the route table, the body checks and one handler per
// route. About 400 lines, kept in one file so that a reader finds each route beside its handler; the
// logins, the scenario's signing and the played services live in units of their own.

#include "accountapi.h"

#include "logging_p.h"
#include "sessionstore.h"
#include "signedscenario.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QRandomGenerator>
#include <QUuid>

#include <algorithm>

namespace vn::devservice {

namespace {

constexpr int ChallengeSize = 32;
const QString ServiceResourceType = QStringLiteral("vantro.resource.Service");
const QString AccountAudience = QStringLiteral("vantro-account");

QString newIdentifier()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
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

// A request body that must be a JSON object.
bool readObject(const QByteArray &body, QJsonObject *object)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    *object = document.object();
    return error.error == QJsonParseError::NoError && document.isObject();
}

ApiResponse tokenAnswer(const QByteArray &token)
{
    if (token.isEmpty()) {
        return ApiResponse::error(500, QStringLiteral("cannot sign the token"));
    }
    return ApiResponse::json(200, QJsonObject{{QStringLiteral("token"), QString::fromLatin1(token)}});
}

enum class Route { CurrentLogin, Consumer, Identity, Entitled, ServiceToken, Logins, OneLogin };

// The route of an authorised request's path below "api/v1/", its argument (the segment after
// "tokens/" or "logins/") and the methods it takes; false for a path the API does not have.
bool findRoute(const QString &path, Route *route, QString *argument, QList<QByteArray> *methods)
{
    static const QHash<QString, Route> fixed{
        {QStringLiteral("logins/current"), Route::CurrentLogin},
        {QStringLiteral("consumer"), Route::Consumer},
        {QStringLiteral("account/identity"), Route::Identity},
        {QStringLiteral("entitled"), Route::Entitled},
        {QStringLiteral("logins"), Route::Logins},
    };
    const auto found = fixed.constFind(path);
    if (found != fixed.constEnd()) {
        *route = found.value();
        *methods =
            *route == Route::CurrentLogin ? QList<QByteArray>{"GET", "DELETE"} : QList<QByteArray>{"GET"};
        return true;
    }
    for (const auto &[parent, parentRoute] : {std::make_pair(QLatin1String("tokens/"), Route::ServiceToken),
                                              std::make_pair(QLatin1String("logins/"), Route::OneLogin)}) {
        if (path.startsWith(parent) && path.size() > parent.size() &&
            path.indexOf(QLatin1Char('/'), parent.size()) < 0) {
            *route = parentRoute;
            *argument = path.mid(parent.size());
            *methods = {parentRoute == Route::OneLogin ? "DELETE" : "GET"};
            return true;
        }
    }
    return false;
}

} // namespace

class AccountApiPrivate
{
public:
    ApiResponse authenticate(const QByteArray &body);
    ApiResponse credentialLogin(const QJsonObject &body);
    ApiResponse issueChallenge(const QJsonObject &body);
    ApiResponse answerChallenge(const QJsonObject &body);
    ApiResponse passwordReset(const QByteArray &body);
    ApiResponse serve(Route route, const QString &argument, const QByteArray &method, const Login &login,
                      const SignedScenario &scenario);
    ApiResponse serviceToken(const QString &resourceId, const Login &login, const SignedScenario &scenario);
    ApiResponse createLogin(const std::shared_ptr<const SignedScenario> &scenario, Login login);

    // Settings change rarely and are read by every login: a lock of their own.
    mutable QMutex settingsMutex;
    ApiSettings settings;
    QString issuer = QStringLiteral("vantro-account-devservice");

    SessionStore sessions;
};

ApiResponse AccountApiPrivate::authenticate(const QByteArray &body)
{
    QJsonObject object;
    if (!readObject(body, &object)) {
        return ApiResponse::error(400, QStringLiteral("the body must be a JSON object"));
    }
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
        return ApiResponse::error(400, QStringLiteral("\"phase\" must be \"challenge\" or \"response\""));
    }
    return ApiResponse::error(
        400, QStringLiteral("\"authType\" must be \"credentials\" or \"challenge-response\""));
}

ApiResponse AccountApiPrivate::credentialLogin(const QJsonObject &body)
{
    QString username;
    QString password;
    QString impersonate;
    Login login;
    login.authType = QStringLiteral("credentials");
    if (!requiredString(body, "username", &username) || !requiredString(body, "password", &password) ||
        !optionalString(body, "hostInfo", &login.hostInfo) ||
        !optionalString(body, "impersonate", &impersonate) ||
        !optionalBool(body, "persistent", &login.persistent)) {
        return ApiResponse::error(400, QStringLiteral("malformed credentials"));
    }
    const std::shared_ptr<const SignedScenario> current = sessions.scenario();
    const auto user = current->users.constFind(username.trimmed());
    if (user == current->users.constEnd() || !equalSecrets(user->password.toUtf8(), password.toUtf8())) {
        return ApiResponse::error(401, QStringLiteral("unknown user name or wrong password"));
    }
    login.authenticatedAs = user->username;
    login.username = user->username;
    impersonate = impersonate.trimmed();
    if (!impersonate.isEmpty() && impersonate != user->username) {
        if (!user->mayImpersonate || !current->users.contains(impersonate)) {
            return ApiResponse::error(403, QStringLiteral("impersonation is not permitted"));
        }
        login.username = impersonate;
    }
    return createLogin(current, login);
}

ApiResponse AccountApiPrivate::issueChallenge(const QJsonObject &body)
{
    QString fingerprint;
    if (!requiredString(body, "fingerprint", &fingerprint)) {
        return ApiResponse::error(400, QStringLiteral("\"fingerprint\" must be a string"));
    }
    const std::shared_ptr<const SignedScenario> current = sessions.scenario();
    const auto device = current->devices.constFind(fingerprint);
    if (device == current->devices.constEnd()) {
        return ApiResponse::error(401, QStringLiteral("unknown key"));
    }
    Challenge challenge;
    challenge.secret = QByteArray(ChallengeSize, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32 *>(challenge.secret.data()),
                                          ChallengeSize / 4);
    // A copy of its own: key operations record their outcome in the key value they run on.
    const crypto::PublicKey key = device->publicKey;
    const QByteArray encrypted = key.encrypt(challenge.secret);
    if (encrypted.isEmpty()) {
        return ApiResponse::error(500, QStringLiteral("cannot encrypt the challenge"));
    }
    challenge.username = device->username;
    challenge.device = device->name.isEmpty() ? device->fingerprint : device->name;
    {
        QMutexLocker locker(&settingsMutex);
        challenge.deadline = QDeadlineTimer(settings.challengeLifetime);
    }
    const QString id = newIdentifier();
    if (!sessions.addChallenge(id, challenge)) {
        return ApiResponse::error(503, QStringLiteral("too many pending challenges"));
    }
    return ApiResponse::json(200,
                             QJsonObject{
                                 {QStringLiteral("id"), id},
                                 {QStringLiteral("challenge"), QString::fromLatin1(encrypted.toBase64())},
                             });
}

ApiResponse AccountApiPrivate::answerChallenge(const QJsonObject &body)
{
    QString id;
    QString response;
    Login login;
    login.authType = QStringLiteral("challenge-response");
    if (!requiredString(body, "challengeId", &id) || !requiredString(body, "challenge", &response) ||
        !optionalString(body, "hostInfo", &login.hostInfo) ||
        !optionalBool(body, "persistent", &login.persistent)) {
        return ApiResponse::error(400, QStringLiteral("malformed challenge response"));
    }
    Challenge challenge;
    std::shared_ptr<const SignedScenario> current;
    if (!sessions.takeChallenge(id, &challenge, &current) || challenge.deadline.hasExpired()) {
        return ApiResponse::error(401, QStringLiteral("unknown or expired challenge"));
    }
    if (!equalSecrets(QByteArray::fromBase64(response.toLatin1()), challenge.secret)) {
        return ApiResponse::error(401, QStringLiteral("wrong answer"));
    }
    login.username = challenge.username;
    login.authenticatedAs = challenge.device;
    return createLogin(current, login);
}

ApiResponse AccountApiPrivate::passwordReset(const QByteArray &body)
{
    QJsonObject object;
    QString username;
    QString language;
    if (!readObject(body, &object) || !requiredString(object, "username", &username) ||
        !optionalString(object, "language", &language)) {
        return ApiResponse::error(400, QStringLiteral("the body must name a \"username\""));
    }
    if (!sessions.scenario()->users.contains(username)) {
        return ApiResponse::error(404, QStringLiteral("unknown user name"));
    }
    qCInfo(lcDevService, "A password reset was requested (language \"%s\")", qPrintable(language));
    return ApiResponse::json(
        201, QJsonObject{{QStringLiteral("username"), username}, {QStringLiteral("language"), language}});
}

ApiResponse AccountApiPrivate::createLogin(const std::shared_ptr<const SignedScenario> &current, Login login)
{
    login.id = newIdentifier();
    login.since = QDateTime::currentDateTimeUtc();
    const qint64 now = login.since.toSecsSinceEpoch();
    QString tokenIssuer;
    {
        QMutexLocker locker(&settingsMutex);
        login.expires = now + settings.tokenLifetime;
        tokenIssuer = issuer;
    }
    QJsonObject claims =
        TokenSigner::claims(tokenIssuer, current->consumer(login.username).value(QLatin1String("id")),
                            AccountAudience, now, login.expires);
    claims.insert(QStringLiteral("sid"), login.id);
    login.token = current->signer.sign(claims);
    if (login.token.isEmpty()) {
        return tokenAnswer(login.token);
    }
    if (!sessions.addLogin(login, current, now)) {
        // The scenario was replaced while this login was being made: it belongs to no scenario.
        return ApiResponse::error(503, QStringLiteral("the scenario changed, try again"));
    }
    return tokenAnswer(login.token);
}

ApiResponse AccountApiPrivate::serve(Route route, const QString &argument, const QByteArray &method,
                                     const Login &login, const SignedScenario &current)
{
    switch (route) {
    case Route::CurrentLogin:
        if (method == "DELETE") {
            sessions.removeLogin(login.id);
        }
        return ApiResponse::json(200, login.record());
    case Route::Consumer:
        return ApiResponse::json(200, current.consumer(login.username));
    case Route::Identity:
        return ApiResponse::json(200, current.identityChain);
    case Route::Entitled: {
        QJsonArray resources;
        for (const Entitlement &resource : current.resources) {
            if (resource.entitles(login.username)) {
                resources.append(resource.envelope);
            }
        }
        return ApiResponse::json(200, resources);
    }
    case Route::ServiceToken:
        return serviceToken(argument, login, current);
    case Route::Logins:
        return ApiResponse::json(200, sessions.loginRecords(login.username));
    case Route::OneLogin: {
        // Another user's login is answered exactly like one that does not exist.
        const QJsonObject record = sessions.removeLoginOf(argument, login.username);
        return record.isEmpty() ? ApiResponse::error(404, QStringLiteral("no such login"))
                                : ApiResponse::json(200, record);
    }
    }
    return ApiResponse::error(404, QStringLiteral("not found"));
}

ApiResponse AccountApiPrivate::serviceToken(const QString &resourceId, const Login &login,
                                            const SignedScenario &current)
{
    const auto resource = std::find_if(
        current.resources.cbegin(), current.resources.cend(), [&](const Entitlement &entitlement) {
            return entitlement.id == resourceId && entitlement.type == ServiceResourceType &&
                   entitlement.entitles(login.username);
        });
    if (resource == current.resources.cend()) {
        return ApiResponse::error(404, QStringLiteral("no such service"));
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    QString tokenIssuer;
    qint64 expires = now;
    {
        QMutexLocker locker(&settingsMutex);
        tokenIssuer = issuer;
        expires += settings.serviceTokenLifetime;
    }
    const QJsonObject payload = resource->envelope.value(QLatin1String("payload")).toObject();
    return tokenAnswer(current.signer.sign(
        TokenSigner::claims(tokenIssuer, current.consumer(login.username).value(QLatin1String("id")),
                            payload.value(QLatin1String("service")), now, expires)));
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
    std::shared_ptr<const SignedScenario> signedScenario = SignedScenario::sign(scenario, playedUrls);
    if (!signedScenario) {
        return false;
    }
    d->sessions.reset(std::move(signedScenario));
    return true;
}

Scenario AccountApi::scenario() const
{
    const std::shared_ptr<const SignedScenario> current = d->sessions.scenario();
    return current ? current->scenario : Scenario();
}

bool AccountApi::setPlayedServiceUrls(const QHash<QString, QUrl> &playedUrls)
{
    const std::shared_ptr<const SignedScenario> current = d->sessions.scenario();
    // A scenario set meanwhile was signed with URLs of its own.
    return current && d->sessions.replace(current, SignedScenario::sign(current->scenario, playedUrls));
}

void AccountApi::setIssuer(const QString &issuer)
{
    QMutexLocker locker(&d->settingsMutex);
    d->issuer = issuer;
}

void AccountApi::setSettings(const ApiSettings &settings)
{
    QMutexLocker locker(&d->settingsMutex);
    d->settings = settings;
}

ApiSettings AccountApi::settings() const
{
    QMutexLocker locker(&d->settingsMutex);
    return d->settings;
}

QJsonArray AccountApi::identityChain() const
{
    const std::shared_ptr<const SignedScenario> current = d->sessions.scenario();
    return current ? current->identityChain : QJsonArray();
}

QJsonArray AccountApi::logins() const
{
    return d->sessions.loginRecords();
}

ApiResponse AccountApi::handle(const ApiRequest &request)
{
    static const QString prefix = QStringLiteral("api/v1/");
    if (!request.path.startsWith(prefix) || !d->sessions.scenario()) {
        return ApiResponse::error(404, QStringLiteral("not found"));
    }
    const QString path = request.path.mid(prefix.size());
    if (path == QLatin1String("authenticate") || path == QLatin1String("password-reset")) {
        if (request.method != "POST") {
            return ApiResponse::methodNotAllowed("POST");
        }
        return path == QLatin1String("authenticate") ? d->authenticate(request.body)
                                                     : d->passwordReset(request.body);
    }
    Route route;
    QString argument;
    QList<QByteArray> methods;
    if (!findRoute(path, &route, &argument, &methods)) {
        return ApiResponse::error(404, QStringLiteral("not found"));
    }
    if (!methods.contains(request.method)) {
        return ApiResponse::methodNotAllowed(methods.join(", "));
    }
    Login login;
    std::shared_ptr<const SignedScenario> current;
    if (!d->sessions.findLogin(bearerToken(request.authorization), &login, &current)) {
        return ApiResponse::unauthorized(QStringLiteral("a valid bearer token is required"));
    }
    return d->serve(route, argument, request.method, login, *current);
}

} // namespace vn::devservice
