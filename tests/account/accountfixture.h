#pragma once

#include "autotest_p.h"
#include "demoscenario.h"
#include "testio.h"
#include "testjson.h"

#include <devservice.h>

#include <VantroAccount/account.h>
#include <VantroAccount/challengeresponseauthenticator.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/passwordreset.h>
#include <VantroAccount/profile.h>
#include <VantroAccount/service.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QNetworkAccessManager>
#include <QQmlNetworkAccessManagerFactory>
#include <QtTest>

#include <memory>

namespace demo = vn::test::demo;

// The development service in-process for the account tests, and the steps they all take.
struct AccountFixture
{
    /// What a sign-out leaves in the profile.
    inline static const QSet<QString> ClientIdentity{QStringLiteral("clientId"), QStringLiteral("clientKey")};

    vn::devservice::DevService service;
    QTemporaryDir folder;

    /// Serves the demo below @p basePath on a free port for the account configuration, runs the
    /// account's schedule @p timeScale times as fast and clears the profile but the client's identity.
    bool start(double timeScale, const QString &basePath = QString())
    {
        // A line for every request served, every request warning and every refusal of a forged
        // resource would bury the lines of a failure.
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false\n"
                                                        "vantro.request.warning=false\n"
                                                        "vantro.account.resource.critical=false"));
        vn::account::TimeScale::setFactor(timeScale);
        service.setBasePath(basePath);
        const QString configuration = folder.filePath(QStringLiteral("account.json"));
        if (!folder.isValid() || !service.listen(QStringLiteral("127.0.0.1"), 0) ||
            !service.writeConfiguration(configuration)) {
            return false;
        }
        qputenv("VANTRO_ACCOUNT_CONFIG", configuration.toLocal8Bit());
        for (const QString &entry : profileEntries() - ClientIdentity) {
            vn::account::Account::profile().deleteEntry(entry);
        }
        return true;
    }

    /// Fills in Ada's name and password.
    static void asAda(vn::account::CredentialAuthenticator &authenticator, bool persistent = false)
    {
        authenticator.setUserName(vn::test::demo::Ada);
        authenticator.setPassword(vn::test::demo::AdaPassword);
        authenticator.setPersistent(persistent);
    }

    /// Logs in as Ada and waits until the refresh has brought consumer, identity and resources.
    static bool connect(vn::account::Account &account, bool persistent)
    {
        vn::account::CredentialAuthenticator authenticator;
        asAda(authenticator, persistent);
        account.login(&authenticator);
        return QTest::qWaitFor(
            [&] { return account.consumer() && account.identity() && !account.resourceList().isEmpty(); },
            10000);
    }

    /// Gives Ada one more login at the service, as another client of hers ("elsewhere") would.
    static bool logInElsewhere()
    {
        vn::account::CredentialAuthenticator elsewhere;
        asAda(elsewhere);
        elsewhere.setHostInfo(QStringLiteral("elsewhere"));
        elsewhere.setNetwork(vn::network::NetworkAccessManager::sharedInstance());
        QSignalSpy finished(&elsewhere, &vn::account::AbstractAuthenticator::finished);
        elsewhere.start();
        return finished.wait();
    }

    static QByteArray demoDeviceKey() { return vn::test::readFile(QStringLiteral(DEMO_DEVICE_KEY)); }

    /// The service resource of @p account named @p name, or null.
    static vn::account::Service *findService(const vn::account::Account &account, const QString &name)
    {
        for (vn::account::Resource *resource :
             account.findResources(QStringLiteral("vantro.resource.Service"))) {
            if (auto *service = qobject_cast<vn::account::Service *>(resource);
                service && service->name() == name) {
                return service;
            }
        }
        return nullptr;
    }

    /// Disconnected with nothing left: no data, no token, no profile entry but the client's identity.
    static bool isSignedOut(const vn::account::Account &account)
    {
        return account.status() == vn::account::Account::Disconnected && !account.isOnline() &&
               !account.consumer() && !account.identity() && !account.session() &&
               account.resourceList().isEmpty() && !account.accessToken().isValid() &&
               profileEntries() == ClientIdentity;
    }

    static QSet<QString> profileEntries()
    {
        const QStringList entries = vn::account::Account::profile().entries();
        return QSet<QString>(entries.cbegin(), entries.cend());
    }

    /// The next @p count requests to "api/v1/" + @p path get @p status (0 serves them) and @p body.
    void addFault(const QString &path, const QByteArray &method, int status, int count = 1,
                  const QByteArray &body = QByteArray())
    {
        vn::devservice::Fault fault;
        fault.path = QStringLiteral("api/v1/") + path;
        fault.method = method;
        fault.status = status;
        fault.count = count;
        fault.body = body;
        service.addFault(fault);
    }

    /// How many received requests with @p method have a path ending in @p pathEnd.
    int countRequests(const QByteArray &method, const QByteArray &pathEnd) const
    {
        const auto journal = service.journal();
        return int(std::count_if(journal.cbegin(), journal.cend(), [&](const auto &request) {
            return request.method == method && request.path.endsWith(pathEnd);
        }));
    }

    /// Waits for @p count more online checks of the account, the account's clock.
    bool waitOnlineChecks(int count) const
    {
        const int until = countRequests("GET", "/logins/current") + count;
        return QTest::qWaitFor([&] { return countRequests("GET", "/logins/current") >= until; }, 10000);
    }

    /// Managers for a QML engine that send what goes to the password-reset address, which is fixed
    /// when the library is built, to this service instead, as an application's proxy would.
    std::unique_ptr<QQmlNetworkAccessManagerFactory> resetRedirect() const
    {
        struct Redirect : QNetworkAccessManager
        {
            Redirect(const QUrl &target, QObject *parent)
                : QNetworkAccessManager(parent)
                , target(target)
            {}
            const QUrl target;
            QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                         QIODevice *body) override
            {
                QNetworkRequest redirected = request;
                redirected.setUrl(request.url() == vn::account::PasswordReset::url() ? target
                                                                                     : request.url());
                return QNetworkAccessManager::createRequest(operation, redirected, body);
            }
        };
        struct Factory : QQmlNetworkAccessManagerFactory
        {
            QUrl target;
            QNetworkAccessManager *create(QObject *parent) override { return new Redirect(target, parent); }
        };
        auto factory = std::make_unique<Factory>();
        factory->target = service.url().resolved(QUrl(QStringLiteral("api/v1/password-reset")));
        return factory;
    }
};
