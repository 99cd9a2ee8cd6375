// Device login and service tokens, each against its floor measured in the same run:
//
//   devicelogin  a ChallengeResponseAuthenticator from start() to finished(Success), against the
//                same exchange made bare: two QNetworkAccessManager POSTs and one RSA-2048 OAEP
//                decryption with OpenSSL in between;
//   enable       Service::enable() until the service is Ready (its token fetched, checked and
//                registered), against one bare GET of the same token on loopback;
//   idle         CPU time of the whole process while 100 enabled services sit on a connected
//                account, in percent of one core: their 5-second ticks must cost next to nothing.
//
// The account service is the development service program in a process of its own, so that only
// the client's work is measured.
//
//   bench_services [--idle-seconds N, default 10; 60 for the full figure] [--rounds N, default 100]

#include "benchsupport.h"

#include <Vantro/getrequest.h>
#include <VantroAccount/account.h>
#include <VantroAccount/challengeresponseauthenticator.h>
#include <VantroAccount/service.h>
#include <VantroCrypto/privatekey.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QNetworkReply>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <sys/resource.h>

#include <functional>

using vn::account::Account;
using vn::account::Service;

namespace {

constexpr int ServiceCount = 100;
QProcess *service = nullptr;

[[noreturn]] void fail(const char *what)
{
    if (service) {
        service->kill();
        service->waitForFinished(10000);
    }
    bench::fail("services", what);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// One device of one user, and the services, all issued by the demo's account identity.
QJsonObject scenario()
{
    QJsonArray resources;
    for (int index = 0; index < ServiceCount; ++index) {
        resources.append(QJsonObject{
            {"id", QStringLiteral("00000000-0000-4000-8000-%1").arg(index, 12, 10, QLatin1Char('0'))},
            {"type", "vantro.resource.Service"},
            {"payload", QJsonObject{{"url", QStringLiteral("https://service%1.example.net/").arg(index)},
                                    {"service", QStringLiteral("service-%1").arg(index)}}}});
    }
    const QString demo = QStringLiteral(DEVSERVICE_DEMO);
    return QJsonObject{
        {"users", QJsonArray{QJsonObject{{"username", "kiosk"}}}},
        {"devices", QJsonArray{QJsonObject{{"user", "kiosk"}, {"keyFile", QStringLiteral(DEMO_DEVICE_KEY)}}}},
        {"identities",
         QJsonArray{
             QJsonObject{{"id", "organisation"}, {"keyFile", QString(demo + "/identity-organisation.pem")}},
             QJsonObject{{"id", "account"}, {"keyFile", QString(demo + "/identity-account.pem")}}}},
        {"tokenKeyFile", QString(demo + "/token-signing.pem")},
        {"resources", resources}};
}

QByteArray oaepDecrypt(EVP_PKEY *key, const QByteArray &cipher)
{
    std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX *)> context(EVP_PKEY_CTX_new(key, nullptr),
                                                                    EVP_PKEY_CTX_free);
    size_t length = 0;
    if (EVP_PKEY_decrypt_init(context.get()) <= 0 ||
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) <= 0 ||
        EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), EVP_sha256()) <= 0 ||
        EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), EVP_sha256()) <= 0 ||
        EVP_PKEY_decrypt(context.get(), nullptr, &length,
                         reinterpret_cast<const unsigned char *>(cipher.constData()),
                         size_t(cipher.size())) <= 0) {
        return QByteArray();
    }
    QByteArray plain(int(length), Qt::Uninitialized);
    if (EVP_PKEY_decrypt(context.get(), reinterpret_cast<unsigned char *>(plain.data()), &length,
                         reinterpret_cast<const unsigned char *>(cipher.constData()),
                         size_t(cipher.size())) <= 0) {
        return QByteArray();
    }
    plain.resize(int(length));
    return plain;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const int idleSeconds = bench::option(argc, argv, "--idle-seconds", 10);
    const int rounds = bench::option(argc, argv, "--rounds", 100);

    QTemporaryDir folder;
    if (!folder.isValid()) {
        fail("no temporary folder");
    }
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(folder.filePath(QStringLiteral("profiles"))));
    QFile scenarioFile(folder.filePath(QStringLiteral("scenario.json")));
    if (!scenarioFile.open(QIODevice::WriteOnly) ||
        scenarioFile.write(QJsonDocument(scenario()).toJson()) <= 0) {
        fail("cannot write the scenario");
    }
    scenarioFile.close();
    const QString configuration = folder.filePath(QStringLiteral("account.json"));
    QProcess serviceProcess;
    service = &serviceProcess;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                       QStringLiteral("vantro.devservice.request.info=false"));
    service->setProcessEnvironment(environment);
    service->start(QStringLiteral(DEVSERVICE_PROGRAM),
                   {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--scenario"),
                    scenarioFile.fileName(), QStringLiteral("--write-config"), configuration});
    if (!service->waitForReadyRead(60000) || !service->readLine().startsWith("listening on")) {
        fail("the development service did not start");
    }
    qputenv("VANTRO_ACCOUNT_CONFIG", QFile::encodeName(configuration));
    // Requesting and receiving each token is logged at debug level by default.
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.account.service.debug=false"));

    const vn::crypto::PrivateKey deviceKey(readFile(QStringLiteral(DEMO_DEVICE_KEY)));
    const bench::Key bareKey = bench::readPrivateKey(readFile(QStringLiteral(DEMO_DEVICE_KEY)));
    QNetworkAccessManager *network = vn::network::NetworkAccessManager::sharedInstance();
    Account account;
    const QUrl authenticate = account.serviceUrl().resolved(QUrl(QStringLiteral("api/v1/authenticate")));
    QEventLoop loop;
    bool failed = false;

    // Device login: the authenticator as the account drives it, against the bare exchange.
    vn::account::ChallengeResponseAuthenticator authenticator;
    authenticator.setPrivateKey(deviceKey);
    authenticator.setNetwork(network);
    authenticator.setHostInfo(QStringLiteral("bench"));
    QObject::connect(
        &authenticator, &vn::account::AbstractAuthenticator::finished, &loop,
        [&](vn::account::AbstractAuthenticator::Status status, const vn::account::AccessToken &token) {
            failed |= status != vn::account::AbstractAuthenticator::Success || !token.isValid();
            loop.quit();
        });
    const QByteArray fingerprint = deviceKey.fingerPrint(QCryptographicHash::Sha256).toBase64();
    QNetworkRequest post(authenticate);
    post.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QNetworkAccessManager bareNetwork;
    const auto postBare = [&](const QByteArray &body) {
        QNetworkReply *reply = bareNetwork.post(post, body);
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        reply->deleteLater();
        failed |= reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200;
        return QJsonDocument::fromJson(reply->readAll()).object();
    };
    const auto bareLogin = [&] {
        const QJsonObject challenge = postBare(
            R"({"authType":"challenge-response","phase":"challenge","fingerprint":")" + fingerprint + "\"}");
        const QByteArray secret = oaepDecrypt(
            bareKey.get(),
            QByteArray::fromBase64(challenge.value(QLatin1String("challenge")).toString().toLatin1()));
        const QJsonObject answer{{"authType", "challenge-response"},
                                 {"phase", "response"},
                                 {"challengeId", challenge.value(QLatin1String("id"))},
                                 {"challenge", QString::fromLatin1(secret.toBase64())},
                                 {"hostInfo", "bench"},
                                 {"persistent", false}};
        failed |= postBare(QJsonDocument(answer).toJson(QJsonDocument::Compact))
                      .value(QLatin1String("token"))
                      .isUndefined();
    };
    bench::compare("services/devicelogin",
                   {"ChallengeResponseAuthenticator",
                    [&] {
                        authenticator.start();
                        loop.exec();
                    }},
                   {"2 bare POSTs + OAEP decrypt", bareLogin}, {rounds, 1, 10, bench::Clock::Wall}, 1.2);
    if (failed) {
        fail("a device login failed");
    }

    // Sign the account in, and wait for its services.
    account.login(&authenticator);
    const auto services = [&account] {
        QList<Service *> list;
        for (vn::account::Resource *resource :
             account.findResources(QStringLiteral("vantro.resource.Service"))) {
            list.append(qobject_cast<Service *>(resource));
        }
        return list;
    };
    if (!bench::waitUntil([&] { return services().size() == ServiceCount; }, 60000)) {
        fail("the account did not receive its services");
    }

    // enable() to Ready, against the bare GET of the same token with the account's bearer.
    Service *first = services().first();
    QObject::connect(first, &Service::statusChanged, &loop, [&] {
        if (first->status() == Service::Ready) {
            loop.quit();
        }
    });
    QNetworkRequest tokenRequest(
        account.serviceUrl().resolved(QUrl(QStringLiteral("api/v1/tokens/") + first->uuid())));
    tokenRequest.setRawHeader("Authorization", "Bearer " + QByteArray(account.accessToken()));
    bench::compare("services/enable",
                   {"Service::enable() to Ready",
                    [&] {
                        first->enable();
                        loop.exec();
                    }},
                   {"bare GET of the token",
                    [&] {
                        QNetworkReply *reply = bareNetwork.get(tokenRequest);
                        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
                        loop.exec();
                        failed |= QJsonDocument::fromJson(reply->readAll())
                                      .object()
                                      .value(QLatin1String("token"))
                                      .isUndefined();
                        reply->deleteLater();
                    }},
                   {rounds, 1, 10, bench::Clock::Wall}, 1.2, [&] { first->disable(); });
    if (failed) {
        fail("a token request failed");
    }

    // Idle: every service enabled and Ready, then left to the timers.
    for (Service *each : services()) {
        each->enable();
    }
    if (!bench::waitUntil(
            [&] {
                return std::all_of(services().cbegin(), services().cend(),
                                   [](const Service *each) { return each->status() == Service::Ready; });
            },
            60000)) {
        fail("not every service became ready");
    }
    bench::waitUntil([] { return false; }, 2000);
    const double cpuBefore = bench::processCpuSeconds();
    QTimer::singleShot(idleSeconds * 1000, &application, &QCoreApplication::quit);
    application.exec();
    const double idlePercent = (bench::processCpuSeconds() - cpuBefore) / idleSeconds * 100.0;
    bench::figure(
        "services/idle",
        qPrintable(QStringLiteral("%1 enabled services over %2 s").arg(ServiceCount).arg(idleSeconds)),
        idlePercent, "% of one core", 0.1);

    account.logout();
    bench::waitUntil([&] { return account.status() == Account::Disconnected; }, 10000);
    service->terminate();
    service->waitForFinished(10000);
    service = nullptr;
    return 0;
}
