// A soak of the account core: a connected account with 100 enabled services and credential
// resources, its schedule a thousand times as fast, while a fault (a 500, a 503, a dropped
// connection, an answer that is not JSON, or a slow one) is set on about one request in ten for
// the whole run. It reports resident memory after warm-up and at the end, whether the registered
// authorizations always equal what the live objects hold, and whether the profile could be
// restored by a new process at every check. The development service runs as a process of its own
// (its faults set through its admin path), so that the memory measured is the account's alone.
//
//   bench_soak [--minutes N, default 10] [--checks N, default 20]

#include "autotest_p.h"
#include "benchsupport.h"

#include <VantroAccount/account.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/service.h>
#include <VantroNetwork/authorizationregistry.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

using vn::account::Account;
using vn::account::Service;

namespace {

constexpr int ServiceCount = 100;

long residentKilobytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').value(0).toLong();
        }
    }
    return -1;
}

// The demo users, identities and credentials, with a hundred services more for Ada, written as a
// scenario file into @p folder beside the demo's keys.
QString writeScenario(const QString &folder)
{
    const QString demoFolder = QStringLiteral(":/vantro-devservice/demo");
    for (const QString &name : QDir(demoFolder).entryList(QDir::Files)) {
        QFile::copy(demoFolder + QLatin1Char('/') + name, folder + QLatin1Char('/') + name);
    }
    QFile demo(demoFolder + QStringLiteral("/scenario.json"));
    if (!demo.open(QIODevice::ReadOnly)) {
        bench::fail("soak", "cannot read the demo scenario");
    }
    QJsonObject document = QJsonDocument::fromJson(demo.readAll()).object();
    QJsonArray resources = document.value(QLatin1String("resources")).toArray();
    for (int index = 0; index < ServiceCount; ++index) {
        resources.append(QJsonObject{
            {"id", QStringLiteral("00000000-0000-4000-9000-%1").arg(index, 12, 10, QLatin1Char('0'))},
            {"type", "vantro.resource.Service"},
            {"payload", QJsonObject{{"url", QStringLiteral("https://soak%1.example.net/").arg(index)},
                                    {"service", QStringLiteral("soak-%1").arg(index)}}}});
    }
    document.insert(QStringLiteral("resources"), resources);
    const QString path = folder + QStringLiteral("/soak-scenario.json");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(document).toJson()) <= 0) {
        bench::fail("soak", "cannot write the soak scenario");
    }
    return path;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    Q_INIT_RESOURCE(devservice); // the demo's files, written out for the service's process
    const int minutes = bench::option(argc, argv, "--minutes", 10);
    const int checks = bench::option(argc, argv, "--checks", 20);
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.*=false"));

    QTemporaryDir folder;
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(folder.filePath(QStringLiteral("profiles"))));
    const QString configuration = folder.filePath(QStringLiteral("account.json"));
    QProcess service;
    // The service's request lines, one per request, are counted at the end.
    const QString serviceLog = folder.filePath(QStringLiteral("service.log"));
    service.setStandardErrorFile(serviceLog);
    // Service tokens live ten minutes: renewed every few seconds on the fast clock.
    service.start(QStringLiteral(VANTRO_DEVSERVICE_PROGRAM),
                  {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--scenario"),
                   writeScenario(folder.path()), QStringLiteral("--service-token-lifetime"),
                   QStringLiteral("600"), QStringLiteral("--write-config"), configuration});
    QUrl serviceUrl;
    const auto configured = [&] {
        QFile file(configuration);
        const QJsonObject written =
            QJsonDocument::fromJson(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray()).object();
        serviceUrl = QUrl(written.value(QLatin1String("serviceUrl")).toString());
        return serviceUrl.port() > 0;
    };
    if (!bench::waitUntil(configured, 30000)) {
        bench::fail("soak", "the development service did not start");
    }
    qputenv("VANTRO_ACCOUNT_CONFIG", QFile::encodeName(configuration));
    vn::account::TimeScale::setFactor(0.001);

    const int registeredBefore = vn::network::AuthorizationRegistry::instance()->count();
    Account account;
    vn::account::CredentialAuthenticator authenticator;
    authenticator.setUserName(QStringLiteral("ada@example.com"));
    authenticator.setPassword(QStringLiteral("ada-demo-password"));
    authenticator.setPersistent(true);
    account.login(&authenticator);
    if (!bench::waitUntil(
            [&] {
                return account.findResources(QStringLiteral("vantro.resource.Service")).size() >=
                       ServiceCount;
            },
            60000)) {
        bench::fail("soak", "the account did not receive its services");
    }
    for (vn::account::Resource *resource : account.findResources(QStringLiteral("vantro.resource.Service"))) {
        qobject_cast<Service *>(resource)->enable();
    }

    // About one request in ten meets a fault: a fault for the next request of any path, after it a
    // random number of requests, 5 to 13, pass untouched. (A 401 of the online check would end the
    // login, as it must; the soak keeps it.)
    const QStringList kinds{R"("status": 500)", R"("status": 503)", R"("dropConnection": true)",
                            R"("malformedBody": true)", R"("delay": 300)"};
    QNetworkAccessManager admin;
    QNetworkRequest faultRequest(serviceUrl.resolved(QUrl(QStringLiteral("admin/faults"))));
    faultRequest.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    int pending = 0;
    int faultsSet = 0;
    bool sending = false;
    QTimer faults;
    faults.callOnTimeout([&] {
        if (sending) {
            return;
        }
        QRandomGenerator *random = QRandomGenerator::global();
        const QString fault = QStringLiteral(R"({"path": "api/v1/*", "skip": %1, %2})")
                                  .arg(5 + random->bounded(9))
                                  .arg(kinds.at(int(random->bounded(kinds.size()))));
        sending = true;
        faultsSet += pending == 0;
        // While one is pending, only ask whether it is used up.
        QNetworkReply *reply =
            pending > 0 ? admin.get(faultRequest) : admin.post(faultRequest, fault.toUtf8());
        QObject::connect(reply, &QNetworkReply::finished, reply, [&, reply] {
            pending = int(QJsonDocument::fromJson(reply->readAll()).array().size());
            sending = false;
            reply->deleteLater();
        });
    });
    faults.start(20);

    // Every credential and every service with a token holds one authorization, the account one.
    const auto expectedAuthorizations = [&] {
        int held = account.accessToken().isValid() ? 1 : 0;
        for (vn::account::Resource *resource : account.resourceList()) {
            const auto *service = qobject_cast<const Service *>(resource);
            held += service ? 0 : resource->inherits("vn::account::DatabaseCredentials");
        }
        return held;
    };
    const int checkSeconds = minutes * 60 / checks;
    long warmKilobytes = 0;
    long peakKilobytes = 0;
    int restorable = 0;
    for (int check = 0; check < checks; ++check) {
        bench::waitUntil([] { return false; }, checkSeconds * 1000);
        const long kilobytes = residentKilobytes();
        if (check == 0) {
            warmKilobytes = kilobytes;
        }
        peakKilobytes = qMax(peakKilobytes, kilobytes);
        // A service's authorization stays after a failed renewal, so it counts once it has had a token.
        const int registered = vn::network::AuthorizationRegistry::instance()->count() - registeredBefore;
        const int services = registered - expectedAuthorizations();
        if (services < 0 ||
            services > account.findResources(QStringLiteral("vantro.resource.Service")).size()) {
            std::printf("check %d: %d authorizations registered for %d held\n", check, registered,
                        expectedAuthorizations());
            bench::fail("soak", "the registered authorizations do not match the live objects");
        }
        QProcess restore;
        restore.start(QStringLiteral(VANTRO_ACCOUNT_PROGRAM),
                      {QStringLiteral("status"), QStringLiteral("--json")});
        restorable +=
            restore.waitForFinished(60000) && restore.readAllStandardOutput().contains("\"signedIn\": true");
    }
    faults.stop();
    service.terminate();
    service.waitForFinished(10000);
    QFile log(serviceLog);
    const QByteArray lines = log.open(QIODevice::ReadOnly) ? log.readAll() : QByteArray();
    std::printf("bench soak: %d faults set, %d requests to the account service\n", faultsSet,
                int(lines.count(" /api/v1/")));

    std::printf(
        "bench soak: %d min, resident %ld KiB after warm-up, %ld KiB at most, growth %ld KiB (goal < 1024); "
        "profile restorable at %d of %d checks\n",
        minutes, warmKilobytes, peakKilobytes, peakKilobytes - warmKilobytes, restorable, checks);
    return peakKilobytes - warmKilobytes < 1024 && restorable == checks ? 0 : 1;
}
