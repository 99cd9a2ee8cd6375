// Service resources against the development service, which also plays the demo's services.

#include "accountfixture.h"

#include <Vantro/getrequest.h>
#include <VantroNetwork/authorizationregistry.h>

using namespace vn::account;

// Service ticks of 5 ms, token checks every 60 ms, the first retry after 5 ms.
static constexpr double Pace = 0.001;

class TestService : public QObject
{
    Q_OBJECT
    AccountFixture m_fixture;
    std::unique_ptr<Account> m_account;
    int m_authorizationsSignedOut = 0;

    Service *service(const QString &name) const { return AccountFixture::findService(*m_account, name); }

    // GET of @p path below @p service's URL through the library; the played service's status and body.
    static QPair<int, QJsonObject> fetch(const QUrl &url)
    {
        QPointer<vn::GetRequest> request = Account().getRequest(url);
        request->setSuppressErrors(true);
        QPair<int, QJsonObject> answer{-1, {}};
        const QObject context; // a late answer finds nobody to tell
        QObject::connect(request.data(), &vn::Request::finished, &context, [&] {
            answer = {request->responseCode(), request->responseObject()};
        });
        static_cast<void>(QTest::qWaitFor([&answer] { return answer.first >= 0; }, 5000));
        return answer;
    }

    // Signs in as Ada, whose account holds both demo services.
    bool signIn()
    {
        m_authorizationsSignedOut = vn::network::AuthorizationRegistry::instance()->count();
        return AccountFixture::connect(*m_account, false) && service(QStringLiteral("demo-files")) &&
               service(QStringLiteral("demo-reports"));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(Pace));
        m_account = std::make_unique<Account>();
        QVERIFY(signIn());
    }

    void cleanup()
    {
        m_fixture.service.clearFaults();
        m_fixture.service.setServiceTokenLifetime(vn::devservice::DevService::DefaultServiceTokenLifetime);
        for (const char *name : {"demo-files", "demo-reports"}) {
            service(QLatin1String(name))->disable();
        }
    }

    void retryDelays()
    {
        QList<qint64> delays;
        for (int failures = 0; failures <= 10; ++failures) {
            delays.append(vn::account::ServicePrivate::retryDelay(failures));
        }
        QCOMPARE(delays, QList<qint64>({5000, 10000, 20000, 40000, 80000, 160000, 320000, 640000, 900000,
                                        900000, 900000}));
    }

    // Which credential reaches which origin, from enabling two services to the end of their resources.
    void routing()
    {
        Service *files = service(QStringLiteral("demo-files"));
        Service *reports = service(QStringLiteral("demo-reports"));
        QCOMPARE(files->url(), m_fixture.service.playedServiceUrl(QStringLiteral("demo-files")));
        const QUrl filesItems = files->createRequest(QUrl(QStringLiteral("items?page=2"))).url();
        QCOMPARE(filesItems, files->url().resolved(QUrl(QStringLiteral("/items?page=2"))));
        QCOMPARE(files->createRequest(m_fixture.service.url()).url(), m_fixture.service.url());

        // The account's own token stays with the account service, though both listen on one host.
        m_fixture.service.clearJournal();
        QCOMPARE(fetch(filesItems).first, 401);
        const auto journal = m_fixture.service.journal();
        const auto filesRequest = std::find_if(
            journal.cbegin(), journal.cend(), [](const auto &request) { return !request.service.isEmpty(); });
        QCOMPARE(filesRequest->headers.value("authorization"), QByteArray());

        QList<int> filesStatus;
        connect(files, &Service::statusChanged, this, [&] { filesStatus.append(files->status()); });
        QSignalSpy filesEnabled(files, &Service::enabledChanged);
        m_fixture.service.clearJournal();
        files->enable();
        files->enable();
        reports->enable();
        QTRY_VERIFY(files->status() == Service::Ready && reports->status() == Service::Ready);
        QCOMPARE(filesStatus, QList<int>({Service::Pending, Service::Ready}));
        QCOMPARE(filesEnabled.size(), 2);
        QCOMPARE(m_fixture.countRequests("GET", "/tokens/" + files->uuid().toLatin1()), 1);

        // Each service gets its own token, which its own origin accepts.
        const auto [filesCode, filesAnswer] = fetch(filesItems);
        QCOMPARE(filesCode, 200);
        QCOMPARE(filesAnswer.value("service"), "demo-files");
        QCOMPARE(filesAnswer.value("path"), "/items");
        QCOMPARE(filesAnswer.value("subject"), m_account->consumer()->identifier());
        QCOMPARE(fetch(reports->url()).second.value("service"), "demo-reports");

        QByteArray filesBearer;
        QByteArray reportsBearer;
        const QByteArray accountBearer = "Bearer " + QByteArray(m_account->accessToken());
        for (const auto &request : m_fixture.service.journal()) {
            const QByteArray bearer = request.headers.value("authorization");
            if (request.service.isEmpty()) {
                QCOMPARE(bearer, accountBearer); // never a service token
            } else {
                (request.service == QLatin1String("demo-files") ? filesBearer : reportsBearer) = bearer;
            }
        }
        QVERIFY(filesBearer.startsWith("Bearer ") && reportsBearer.startsWith("Bearer "));
        QVERIFY(filesBearer != reportsBearer && filesBearer != accountBearer);

        // Disabled, the service forgets its token; the last one still authorises its origin.
        files->disable();
        files->disable();
        QCOMPARE(filesStatus, QList<int>({Service::Pending, Service::Ready, Service::Disabled}));
        QCOMPARE(filesEnabled.size(), 3);
        QCOMPARE(fetch(filesItems).first, 200);

        // With the resources gone (signed out), so are their authorizations.
        QSignalSpy filesGone(files, &QObject::destroyed);
        m_account->logout();
        QTRY_VERIFY(!filesGone.isEmpty());
        QCOMPARE(fetch(filesItems).first, 401);
        QCOMPARE(vn::network::AuthorizationRegistry::instance()->count(), m_authorizationsSignedOut);
        QVERIFY(signIn());
    }

    // An expired token (the service's tokens last 0 s) is logged and asked for again with back-off
    // (at 0, 5, 15, 35, 75, 155 ms here, not every tick) until a good one comes; a token with less
    // than five minutes left is renewed, one with more only looked at. "status" after "checks" online
    // checks, with "changes" since the enable.
    void token_data()
    {
        QTest::addColumn<int>("lifetime");
        QTest::addColumn<int>("checks");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("changes");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("maximum");
        QTest::newRow("expired") << 0 << 10 << int(Service::Pending) << 1 << 3 << 7;
        QTest::newRow("an hour left: kept") << 3600 << 20 << int(Service::Ready) << 2 << 1 << 1;
        QTest::newRow("two minutes left: renewed") << 120 << 20 << int(Service::Ready) << 2 << 3 << 1000;
    }

    void token()
    {
        QFETCH(int, lifetime);
        QFETCH(int, checks);
        QFETCH(int, status);
        QFETCH(int, changes);
        QFETCH(int, minimum);
        QFETCH(int, maximum);
        Service *files = service(QStringLiteral("demo-files"));
        m_fixture.service.setServiceTokenLifetime(lifetime);
        if (lifetime == 0) {
            QTest::ignoreMessage(QtCriticalMsg, "Successful token request returned invalid token");
        }
        m_fixture.service.clearJournal();
        QSignalSpy statusChanged(files, &Service::statusChanged);
        files->enable();
        QVERIFY(m_fixture.waitOnlineChecks(checks));
        QCOMPARE(int(files->status()), status);
        QCOMPARE(statusChanged.size(), changes);
        const int attempts = m_fixture.countRequests("GET", "/tokens/" + files->uuid().toLatin1());
        QVERIFY2(attempts >= minimum && attempts <= maximum, qPrintable(QString::number(attempts)));
        m_fixture.service.setServiceTokenLifetime(vn::devservice::DevService::DefaultServiceTokenLifetime);
        QTRY_COMPARE(files->status(), Service::Ready);
    }

    // An answer that arrives after disable() changes nothing.
    void disabledBeforeTheAnswer()
    {
        Service *files = service(QStringLiteral("demo-files"));
        Service *reports = service(QStringLiteral("demo-reports"));
        vn::devservice::Fault slow;
        slow.path = QStringLiteral("api/v1/tokens/*");
        slow.delay = 200;
        slow.count = 2;
        m_fixture.service.addFault(slow);
        const int registered = vn::network::AuthorizationRegistry::instance()->count();
        files->enable();
        files->disable();
        reports->enable(); // asks after the files service, and so is answered after it
        QTRY_COMPARE(reports->status(), Service::Ready);
        QCOMPARE(files->status(), Service::Disabled);
        QCOMPARE(vn::network::AuthorizationRegistry::instance()->count(), registered + 1);
    }
};

QTEST_GUILESS_MAIN(TestService)
#include "tst_service.moc"
