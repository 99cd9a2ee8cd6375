// The account core's running costs, each against its floor measured in the same run:
//
//   restore  making the first Account over a connected profile (an identity chain of three links
//            and 1,000 resources), against reading and parsing the same profile files plus bare
//            OpenSSL verification of the same 1,003 signatures on keys and bytes prepared before;
//   refresh  the resource handler given the same 1,000 resources again, against parsing the body;
//   idle     CPU time of the whole process while a connected account sits idle, in percent of one
//            core (getrusage before and after).
//
// The account service is the development service program in a process of its own, serving a
// scenario with that chain and those resources, so that only the client's work is measured.
//
//   bench_accountcore [idle seconds, default 60] [restore rounds, default 15]

#include "accountinstance.h"

#include <Vantro/getrequest.h>
#include <VantroAccount/account.h>
#include <VantroAccount/accountconfiguration.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/profile.h>
#include <VantroAccount/resource.h>
#include <VantroCrypto/jsonsignature.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

using vn::account::Account;

namespace {

constexpr int ResourceCount = 1000;
const QString UserName = QStringLiteral("bench");
const QString Password = QStringLiteral("bench-password");
const char *const ResourceTypes[] = {"vantro.resource.Database", "vantro.resource.AuthorCredentials",
                                     "vantro.resource.DeviceCredentials", "vantro.resource.Service"};

qint64 sink = 0;

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "bench_accountcore: %s\n", what);
    std::exit(1);
}

double threadCpuMicroseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e6 + double(now.tv_nsec) / 1e3;
}

double processCpuSeconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

bool waitUntil(const std::function<bool()> &condition, int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

QJsonObject payloadFor(int index)
{
    const QString number = QString::number(index);
    switch (index % 4) {
    case 0:
        return {{QStringLiteral("server"), QStringLiteral("https://db%1.example.net/").arg(number)},
                {QStringLiteral("name"), QStringLiteral("inventory-%1").arg(number)},
                {QStringLiteral("authoringOptions"), QJsonObject{{QStringLiteral("pageSize"), 50}}}};
    case 1:
        return {{QStringLiteral("type"), QStringLiteral("bearer")},
                {QStringLiteral("realm"), QStringLiteral("files%1.example.net").arg(number)},
                {QStringLiteral("credentials"),
                 QJsonObject{{QStringLiteral("token"), QUuid::createUuid().toString()}}}};
    case 2:
        return {{QStringLiteral("type"), QStringLiteral("basic")},
                {QStringLiteral("realm"), QStringLiteral("db%1.example.net").arg(number)},
                {QStringLiteral("credentials"),
                 QJsonObject{{QStringLiteral("userName"), QStringLiteral("device-%1").arg(number)},
                             {QStringLiteral("password"), QUuid::createUuid().toString()}}}};
    default:
        return {{QStringLiteral("url"), QStringLiteral("https://service%1.example.net/").arg(number)},
                {QStringLiteral("service"), QStringLiteral("reports-%1").arg(number)}};
    }
}

// One user, a chain of three generated identities below the development root, and the resources,
// all issued by the account's own identity.
QJsonObject scenario()
{
    QJsonArray identities;
    for (const char *id : {"organisation", "department", "account"}) {
        identities.append(
            QJsonObject{{QStringLiteral("id"), QLatin1String(id)}, {QStringLiteral("bits"), 3072}});
    }
    QJsonArray resources;
    for (int index = 0; index < ResourceCount; ++index) {
        resources.append(
            QJsonObject{{QStringLiteral("id"), QUuid::createUuid().toString(QUuid::WithoutBraces)},
                        {QStringLiteral("type"), QLatin1String(ResourceTypes[index % 4])},
                        {QStringLiteral("payload"), payloadFor(index)}});
    }
    return {{QStringLiteral("users"), QJsonArray{QJsonObject{{QStringLiteral("username"), UserName},
                                                             {QStringLiteral("password"), Password}}}},
            {QStringLiteral("identities"), identities},
            {QStringLiteral("resources"), resources}};
}

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Key readPublicKey(const QString &pem)
{
    const QByteArray bytes = pem.toLatin1();
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(bytes.constData(), int(bytes.size())),
                                                  &BIO_free);
    return Key(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
}

struct Signed
{
    EVP_PKEY *key;
    QByteArray message;
    QByteArray signature;
};

bool verifyBare(const Signed &item)
{
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    EVP_PKEY_CTX *keyContext = nullptr;
    if (EVP_DigestVerifyInit(context.get(), &keyContext, EVP_sha256(), nullptr, item.key) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING) != 1 ||
        EVP_PKEY_CTX_set_rsa_mgf1_md(keyContext, EVP_sha256()) != 1 ||
        EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, 32) != 1) {
        return false;
    }
    return EVP_DigestVerify(context.get(),
                            reinterpret_cast<const unsigned char *>(item.signature.constData()),
                            size_t(item.signature.size()),
                            reinterpret_cast<const unsigned char *>(item.message.constData()),
                            size_t(item.message.size())) == 1;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What a restore cannot avoid: the profile's files read and parsed, and every signature checked.
struct RestoreFloor
{
    QDir folder;
    std::vector<Key> keys;
    std::vector<Signed> items;

    explicit RestoreFloor(const QDir &profileFolder)
        : folder(profileFolder)
    {
        const QJsonArray chain =
            QJsonDocument::fromJson(readFile(folder.filePath(QStringLiteral("identity")))).array();
        const QJsonArray resources =
            QJsonDocument::fromJson(readFile(folder.filePath(QStringLiteral("resources")))).array();
        keys.emplace_back(readPublicKey(
            vn::account::AccountConfiguration::rootIdentity().value(QLatin1String("publicKey")).toString()));
        for (const QJsonValue &link : chain) {
            add(link.toObject(), keys.back().get());
            keys.emplace_back(readPublicKey(link.toObject().value(QLatin1String("publicKey")).toString()));
        }
        for (const QJsonValue &resource : resources) {
            add(resource.toObject(), keys.back().get());
        }
    }

    void add(const QJsonObject &object, EVP_PKEY *key)
    {
        items.push_back(
            {key, vn::crypto::JsonSignature::signedBytes(object),
             QByteArray::fromBase64(object.value(QLatin1String("signature")).toString().toLatin1())});
    }

    void run() const
    {
        for (const char *entry : {"clientId", "clientKey", "accessToken"}) {
            sink += readFile(folder.filePath(QLatin1String(entry))).size();
        }
        for (const char *entry : {"sessionInfo", "consumerInfo"}) {
            sink += QJsonDocument::fromJson(readFile(folder.filePath(QLatin1String(entry)))).object().size();
        }
        for (const char *entry : {"identity", "resources"}) {
            sink += QJsonDocument::fromJson(readFile(folder.filePath(QLatin1String(entry)))).array().size();
        }
        for (const Signed &item : items) {
            sink += verifyBare(item) ? 1 : 0;
        }
    }
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const int idleSeconds = argc > 1 ? std::max(1, atoi(argv[1])) : 60;
    const int rounds = argc > 2 ? std::max(1, atoi(argv[2])) : 15;

    QTemporaryDir folder;
    if (!folder.isValid()) {
        fail("no temporary folder");
    }
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(folder.filePath(QStringLiteral("profiles"))));
    application.setProperty("profile", QStringLiteral("bench"));
    QFile scenarioFile(folder.filePath(QStringLiteral("scenario.json")));
    if (!scenarioFile.open(QIODevice::WriteOnly) ||
        scenarioFile.write(QJsonDocument(scenario()).toJson()) <= 0) {
        fail("cannot write the scenario");
    }
    scenarioFile.close();

    const QString configuration = folder.filePath(QStringLiteral("account.json"));
    QProcess service;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                       QStringLiteral("vantro.devservice.request.info=false"));
    service.setProcessEnvironment(environment);
    service.start(QStringLiteral(DEVSERVICE_PROGRAM),
                  {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--scenario"),
                   scenarioFile.fileName(), QStringLiteral("--write-config"), configuration});
    if (!service.waitForReadyRead(300000) || !service.readLine().startsWith("listening on")) {
        fail("the development service did not start");
    }
    qputenv("VANTRO_ACCOUNT_CONFIG", QFile::encodeName(configuration));

    // Sign in once; the refresh brings the chain and the resources and keeps them in the profile.
    auto account = std::make_unique<Account>();
    vn::account::CredentialAuthenticator authenticator;
    authenticator.setUserName(UserName);
    authenticator.setPassword(Password);
    authenticator.setPersistent(true);
    account->login(&authenticator);
    if (!waitUntil([&] { return account->resourceList().size() == ResourceCount; }, 120000)) {
        fail("the account did not receive its resources");
    }

    // Refresh: the resource handler, run again and again on one finished request of "entitled".
    auto *instance = qobject_cast<vn::account::AccountInstance *>(account->resourceList().first()->parent());
    vn::GetRequest *request = account->getRequest(QUrl(QStringLiteral("entitled")));
    request->setParent(&application);
    bool finished = false;
    QObject::connect(request, &vn::Request::finished, &application, [&finished] { finished = true; });
    if (!waitUntil([&finished] { return finished; }, 30000) || !request->isOk(200)) {
        fail("entitled did not answer");
    }
    QObject::connect(request, &vn::Request::finished, instance,
                     &vn::account::AccountInstance::processResourcesUpdate);
    const QList<vn::account::Resource *> before = account->resourceList();
    std::vector<double> handler;
    std::vector<double> parse;
    for (int round = -3; round < 40; ++round) {
        double start = threadCpuMicroseconds();
        Q_EMIT request->finished();
        const double handlerTime = threadCpuMicroseconds() - start;
        start = threadCpuMicroseconds();
        sink += QJsonDocument::fromJson(request->rawResponse()).array().size();
        const double parseTime = threadCpuMicroseconds() - start;
        if (round >= 0) {
            handler.push_back(handlerTime);
            parse.push_back(parseTime);
        }
    }
    if (account->resourceList() != before) {
        fail("an unchanged refresh replaced resources");
    }

    // Restore: every Account gone, then the first one made again, alternating with the floor.
    const QDir profileFolder(folder.filePath(QStringLiteral("profiles/bench")));
    account.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const RestoreFloor floor(profileFolder);
    std::vector<double> restore;
    std::vector<double> bare;
    for (int round = -2; round < rounds; ++round) {
        double start = threadCpuMicroseconds();
        account = std::make_unique<Account>();
        const double restoreTime = threadCpuMicroseconds() - start;
        if (account->status() != Account::Connected || account->resourceList().size() != ResourceCount) {
            fail("the restore lost resources");
        }
        account.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        start = threadCpuMicroseconds();
        floor.run();
        const double bareTime = threadCpuMicroseconds() - start;
        if (round >= 0) {
            restore.push_back(restoreTime);
            bare.push_back(bareTime);
        }
    }

    // Idle: a connected account after its first refresh, left to its timer.
    account = std::make_unique<Account>();
    waitUntil([] { return false; }, 3000);
    const double cpuBefore = processCpuSeconds();
    QTimer::singleShot(idleSeconds * 1000, &application, &QCoreApplication::quit);
    application.exec();
    const double idlePercent = (processCpuSeconds() - cpuBefore) / idleSeconds * 100.0;

    account->logout();
    waitUntil([&] { return account->status() == Account::Disconnected; }, 10000);
    account.reset();
    service.terminate();
    service.waitForFinished(10000);

    const double restoreMedian = median(restore);
    const double bareMedian = median(bare);
    const double handlerMedian = median(handler);
    const double parseMedian = median(parse);
    std::printf("restore (3 links, %d resources), median of %d: Account %.0f us, files + JSON + bare OpenSSL "
                "verify %.0f us, ratio %.2f\n",
                ResourceCount, rounds, restoreMedian, bareMedian, restoreMedian / bareMedian);
    std::printf(
        "refresh of %d unchanged resources, median of 40: handler %.0f us, JSON parse %.0f us, ratio %.2f\n",
        ResourceCount, handlerMedian, parseMedian, handlerMedian / parseMedian);
    std::printf("idle connected account over %d s: %.3f %% of one core\n", idleSeconds, idlePercent);
    return sink > 0 ? 0 : 1;
}
