// The account core's running costs, each against its floor measured in the same run:
//
//   restore  making the first Account over a connected profile (an identity chain of three links
//            and 1,000 resources), against reading and parsing the same profile files plus bare
//            OpenSSL verification of the same 1,003 signatures on keys and bytes prepared before;
//   refresh  the resource handler given the same 1,000 resources again, against parsing the body;
//   idle     CPU time of the whole process while a connected account sits idle, in percent of one
//            core (getrusage before and after), against a bare 200 ms coarse object timer in the same
//            process for as long: the refresh tick must cost next to nothing beyond its timer.
//
// The account service is the development service program in a process of its own, serving a
// scenario with that chain and those resources, so that only the client's work is measured.
//
//   bench_accountcore [--idle-seconds N, default 10; 60 for the full figure] [--rounds N, default 15]

#include "autotest_p.h"
#include "benchsupport.h"

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

#include <sys/resource.h>

#include <functional>
#include <memory>
#include <vector>

using vn::account::Account;

namespace {

constexpr int ResourceCount = 1000;
const QString UserName = QStringLiteral("bench");
const QString Password = QStringLiteral("bench-password");

QProcess *service = nullptr;

// Takes the service down first: std::exit() leaves the QProcess in main() to its own devices.
[[noreturn]] void fail(const char *what)
{
    if (service) {
        service->kill();
        service->waitForFinished(10000);
    }
    bench::fail("accountcore", what);
}

QJsonObject json(const QString &text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

// One user, a chain of three generated identities below the development root, and the resources,
// all issued by the account's own identity.
QJsonObject scenario()
{
    QJsonObject scenario =
        json(QStringLiteral(
                 R"({"users": [{"username": "%1", "password": "%2"}], "identities": [{"id": "organisation",)"
                 R"( "bits": 3072}, {"id": "department", "bits": 3072}, {"id": "account", "bits": 3072}]})")
                 .arg(UserName, Password));
    scenario.insert(QStringLiteral("resources"), bench::resourceRecords(ResourceCount));
    return scenario;
}

QByteArray readFile(const QDir &folder, const char *entry)
{
    QFile file(folder.filePath(QLatin1String(entry)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What a restore cannot avoid: the profile's files read and parsed, and every signature checked on
// keys and canonical bytes prepared before.
struct RestoreFloor
{
    struct Signed
    {
        EVP_PKEY *key;
        QByteArray message;
        QByteArray signature;
    };
    QDir folder;
    std::vector<bench::Key> keys;
    std::vector<Signed> items;

    explicit RestoreFloor(const QDir &profileFolder)
        : folder(profileFolder)
    {
        const auto add = [this](const QJsonValue &value) {
            const QJsonObject object = value.toObject();
            items.push_back(
                {keys.back().get(), vn::crypto::JsonSignature::signedBytes(object),
                 QByteArray::fromBase64(object.value(QLatin1String("signature")).toString().toLatin1())});
        };
        keys.push_back(bench::readPublicKey(vn::account::AccountConfiguration::rootIdentity()
                                                .value(QLatin1String("publicKey"))
                                                .toString()
                                                .toLatin1()));
        for (const QJsonValue &link : QJsonDocument::fromJson(readFile(folder, "identity")).array()) {
            add(link);
            keys.push_back(bench::readPublicKey(
                link.toObject().value(QLatin1String("publicKey")).toString().toLatin1()));
        }
        for (const QJsonValue &resource : QJsonDocument::fromJson(readFile(folder, "resources")).array()) {
            add(resource);
        }
    }

    void run() const
    {
        for (const char *entry : {"clientId", "clientKey", "accessToken"}) {
            bench::sink += readFile(folder, entry).size();
        }
        for (const char *entry : {"sessionInfo", "consumerInfo"}) {
            bench::sink += QJsonDocument::fromJson(readFile(folder, entry)).object().size();
        }
        for (const char *entry : {"identity", "resources"}) {
            bench::sink += QJsonDocument::fromJson(readFile(folder, entry)).array().size();
        }
        for (const Signed &item : items) {
            bench::sink += bench::verifyPss(item.key, item.message, item.signature);
        }
    }
};

// What any 200 ms tick costs: an object timer whose event does nothing.
class BareTimer : public QObject
{
public:
    BareTimer() { startTimer(200, Qt::CoarseTimer); }

protected:
    void timerEvent(QTimerEvent *) override { ++bench::sink; }
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const int idleSeconds = bench::option(argc, argv, "--idle-seconds", 10);

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
    QProcess serviceProcess;
    service = &serviceProcess;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                       QStringLiteral("vantro.devservice.request.info=false"));
    service->setProcessEnvironment(environment);
    service->start(QStringLiteral(DEVSERVICE_PROGRAM),
                   {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--scenario"),
                    scenarioFile.fileName(), QStringLiteral("--write-config"), configuration});
    if (!service->waitForReadyRead(300000) || !service->readLine().startsWith("listening on")) {
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
    if (!bench::waitUntil([&] { return account->resourceList().size() == ResourceCount; }, 120000)) {
        fail("the account did not receive its resources");
    }

    // Refresh: the resource handler, run again and again on one finished request of "entitled".
    auto *instance = qobject_cast<vn::account::AccountInstance *>(account->resourceList().first()->parent());
    vn::GetRequest *request = account->getRequest(QUrl(QStringLiteral("entitled")));
    request->setParent(&application);
    bool finished = false;
    QObject::connect(request, &vn::Request::finished, &application, [&finished] { finished = true; });
    if (!bench::waitUntil([&finished] { return finished; }, 30000) || !request->isOk(200)) {
        fail("entitled did not answer");
    }
    QObject::connect(request, &vn::Request::finished, instance,
                     &vn::account::AccountInstance::processResourcesUpdate);
    const QList<vn::account::Resource *> before = account->resourceList();
    bench::compare("accountcore/refresh",
                   {"handler of 1000 unchanged resources", [&] { Q_EMIT request->finished(); }},
                   {"JSON parse",
                    [&] { bench::sink += QJsonDocument::fromJson(request->rawResponse()).array().size(); }},
                   {40, 1, 3}, 1.25);
    if (account->resourceList() != before) {
        fail("an unchanged refresh replaced resources");
    }

    // Restore: every Account gone, then the first one made again, alternating with the floor.
    account.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const RestoreFloor floor(QDir(folder.filePath(QStringLiteral("profiles/bench"))));
    bench::compare("accountcore/restore",
                   {"Account(), 3 links + 1000 resources", [&] { account = std::make_unique<Account>(); }},
                   {"files + JSON + bare OpenSSL verify", [&] { floor.run(); }},
                   {bench::option(argc, argv, "--rounds", 15), 1, 2}, 1.10, [&] {
                       if (account->status() != Account::Connected ||
                           account->resourceList().size() != ResourceCount) {
                           fail("the restore lost resources");
                       }
                       account.reset();
                       QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                   });

    // Idle: a connected account after its first refresh, left to its timer, against a bare 200 ms
    // coarse object timer in the same process for as long.
    const auto idleCpuPercent = [&] {
        const double cpuBefore = bench::processCpuSeconds();
        QTimer::singleShot(idleSeconds * 1000, &application, &QCoreApplication::quit);
        application.exec();
        return (bench::processCpuSeconds() - cpuBefore) / idleSeconds * 100.0;
    };
    account = std::make_unique<Account>();
    bench::waitUntil([] { return false; }, 3000);
    const double idlePercent = idleCpuPercent();
    account->logout();
    bench::waitUntil([&] { return account->status() == Account::Disconnected; }, 10000);
    account.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    double floorPercent = 0;
    {
        BareTimer timer;
        floorPercent = idleCpuPercent();
    }
    bench::figure("accountcore/idle",
                  qPrintable(QStringLiteral("connected account over %1 s").arg(idleSeconds)), idlePercent,
                  "% of one core", 0.1);
    bench::figure("accountcore/idle-floor",
                  qPrintable(QStringLiteral("bare 200 ms coarse timer over %1 s").arg(idleSeconds)),
                  floorPercent, "% of one core", 0.1);
    bench::figure("accountcore/idle-ratio", "connected account / bare timer", idlePercent / floorPercent, "x",
                  1.25);

    service->terminate();
    service->waitForFinished(10000);
    service = nullptr;
    return 0;
}
