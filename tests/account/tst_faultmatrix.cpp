// Every request the library makes, under every fault the development service can play: what the
// caller sees, what the profile keeps, and that the call works again once the fault is gone. The
// rows are the matrix; the test body is one.

#include "accountfixture.h"
#include "testlog.h"

#include <Vantro/request.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/loginlistmodel.h>

#include <QQmlEngine>

using vn::account::Account;
using vn::account::LoginListModel;
using vn::account::Service;
using vn::devservice::Fault;

// Refreshes within milliseconds: the online check every 15 ms, a failed task again after 2.5 ms.
static constexpr double FastPace = 0.0005;
// No answer for this long stands for a service that never answers; the client gives up first.
static constexpr int SilentDelay = 3000;
static constexpr int TransferTimeout = 1000;

enum Call {
    Login,
    DeviceChallenge,
    DeviceAnswer,
    OnlineCheck,
    Logout,
    ConsumerUpdate,
    IdentityUpdate,
    ResourceUpdate,
    ServiceToken,
    LoginList,
    EndLogin,
    PasswordReset,
};

struct CallPath
{
    const char *name;
    const char *path; // below "api/v1/"
    QByteArray method;
    int skip;     // requests to the path that pass before the one the row is about
    bool repeats; // the library asks again by itself after a failure
    bool array;   // the answer is an array
};

static const CallPath Paths[] = {
    {"login", "authenticate", "POST", 0, false, false},
    {"device challenge", "authenticate", "POST", 0, false, false},
    {"device answer", "authenticate", "POST", 1, false, false},
    {"online check", "logins/current", "GET", 0, true, false},
    {"logout", "logins/current", "DELETE", 0, false, false},
    {"consumer", "consumer", "GET", 0, true, false},
    {"identity", "account/identity", "GET", 0, true, true},
    {"resources", "entitled", "GET", 0, true, true},
    {"service token", "tokens/*", "GET", 0, false, false},
    {"login list", "logins", "GET", 0, true, true},
    {"end login", "logins/*", "DELETE", 0, false, false},
    {"password reset", "password-reset", "POST", 0, false, false},
};

class TestFaultMatrix : public QObject
{
    Q_OBJECT
    AccountFixture m_fixture;
    std::unique_ptr<Account> m_account;
    std::unique_ptr<LoginListModel> m_logins;
    std::unique_ptr<QQmlNetworkAccessManagerFactory> m_resetNetwork;
    QQmlEngine m_engine;
    QByteArray m_deviceKey;
    QString m_otherLogin; // the login that EndLogin ends
    QList<int> m_errors{Account::NoError};
    int m_resetStatus = -1;
    int m_deleteFailures = 0;
    int m_rowsBefore = 0;
    QPointer<QObject> m_before; // the record the refresh under test would replace

    Service *files() const { return AccountFixture::findService(*m_account, QStringLiteral("demo-files")); }

    // The object that a refresh of @p call replaces when it succeeds.
    QObject *record(Call call) const
    {
        return call == ConsumerUpdate   ? static_cast<QObject *>(m_account->consumer())
               : call == IdentityUpdate ? static_cast<QObject *>(m_account->identity())
               : call == ResourceUpdate ? m_account->resourceList().value(0)
                                        : nullptr;
    }

    static QMap<QString, QByteArray> profile()
    {
        QMap<QString, QByteArray> entries;
        for (const QString &entry : Account::profile().entries()) {
            entries.insert(entry, Account::profile().readBinary(entry));
        }
        return entries;
    }

    static QString profileChange(const QMap<QString, QByteArray> &before,
                                 const QMap<QString, QByteArray> &after)
    {
        QStringList changed;
        for (const QString &entry : before.keys() + after.keys()) {
            if (before.value(entry) != after.value(entry) && !changed.contains(entry)) {
                changed.append(entry);
            }
        }
        const bool wiped = QSet<QString>(after.keyBegin(), after.keyEnd()) == AccountFixture::ClientIdentity;
        return after == before ? QStringLiteral("kept")
               : wiped         ? QStringLiteral("wiped")
                               : QStringLiteral("changed ") + changed.join(QLatin1Char(' '));
    }

    // Signed in as Ada with every record, or signed out, as the call needs.
    bool prepare(Call call)
    {
        // At the real pace during a logout: no online check is under way when the login ends at the
        // service, to find it gone and sign out before the logout's own answer is handled.
        const double pace = call == Logout ? 1 : FastPace;
        vn::account::TimeScale::setFactor(pace);
        const bool signIn = call >= OnlineCheck;
        if (!signIn && m_account->status() == Account::Connected) {
            m_account->logout();
        }
        if (signIn && m_account->status() != Account::Connected) {
            if (!QTest::qWaitFor([this] { return m_account->status() == Account::Disconnected; })) {
                return false;
            }
            start(Login);
        }
        if (!QTest::qWaitFor([&] {
                return signIn ? m_account->consumer() && m_account->identity() && files() &&
                                    m_account->isOnline()
                              : m_account->status() == Account::Disconnected;
            })) {
            return false;
        }
        if (call == ServiceToken) {
            files()->disable();
        } else if (call == LoginList || call == EndLogin) {
            if (call == EndLogin && m_fixture.service.logins().size() < 2 &&
                !AccountFixture::logInElsewhere()) {
                return false;
            }
            // Polls at the real pace for a delete, so that no new list replaces the row it ends.
            vn::account::TimeScale::setFactor(call == EndLogin ? 1 : FastPace);
            m_logins = std::make_unique<LoginListModel>();
            vn::account::TimeScale::setFactor(pace);
            connect(m_logins.get(), &LoginListModel::deleteFailed, this, [this] { ++m_deleteFailures; });
            if (!QTest::qWaitFor([&] { return m_logins->rowCount() >= (call == EndLogin ? 2 : 1); })) {
                return false;
            }
            const bool firstIsOwn = m_logins->index(0).data(LoginListModel::CurrentSessionRole).toBool();
            m_otherLogin = m_logins->index(firstIsOwn ? 1 : 0).data(LoginListModel::SessionIdRole).toString();
        }
        m_rowsBefore = m_logins ? m_logins->rowCount() : 0;
        m_before = record(call);
        m_deleteFailures = 0;
        m_resetStatus = -1;
        vn::test::loggedMessages().clear();
        return true;
    }

    void start(Call call)
    {
        m_errors = {Account::NoError}; // the last one counts
        if (call == Login) {
            auto *password = new vn::account::CredentialAuthenticator(m_account.get());
            AccountFixture::asAda(*password, true);
            m_account->login(password);
        } else if (call == DeviceChallenge || call == DeviceAnswer) {
            auto *device = new vn::account::ChallengeResponseAuthenticator(m_account.get());
            device->setPrivateKey(vn::crypto::PrivateKey(m_deviceKey));
            device->setPersistent(true);
            m_account->login(device);
        } else if (call == Logout) {
            m_account->logout();
        } else if (call == ServiceToken) {
            files()->enable();
        } else if (call == EndLogin) {
            m_logins->deleteLogin(m_otherLogin);
        } else if (call == PasswordReset) {
            auto *reset = new vn::account::PasswordReset(&m_engine);
            QQmlEngine::setContextForObject(reset, m_engine.rootContext());
            connect(reset, &vn::account::PasswordReset::finished, this, [this, reset](int status) {
                m_resetStatus = status;
                reset->deleteLater();
            });
            reset->setEmail(demo::Ada);
            reset->requestReset();
        } // the refreshes ask by themselves
    }

    // What the call shows now; empty while its answer has not been handled.
    QString outcome(Call call) const
    {
        const QString status = QMetaEnum::fromType<Account::Status>().valueToKey(m_account->status());
        const QString state = status + (m_account->isOnline() ? " online" : " offline");
        const QString error = QMetaEnum::fromType<Account::Error>().valueToKey(m_errors.constLast());
        const bool busy =
            m_account->status() == Account::Connecting || m_account->status() == Account::Disconnecting;
        const QObject *now = record(call);
        switch (call) {
        case OnlineCheck:
            return state;
        case ConsumerUpdate:
        case IdentityUpdate:
        case ResourceUpdate:
            return state + (now && now == m_before ? QStringLiteral(", kept")
                            : now                  ? QStringLiteral(", new")
                                                   : QStringLiteral(", none"));
        case ServiceToken: // every failure is logged
            return files()->status() == Service::Ready ? QStringLiteral("Ready")
                   : !vn::test::loggedMessages().filter("vantro.account.service: ").isEmpty()
                       ? QStringLiteral("Pending")
                       : QString();
        case LoginList:
            return m_logins->rowCount() == m_rowsBefore ? QStringLiteral("rows kept")
                   : m_logins->rowCount() == 0          ? QStringLiteral("rows emptied")
                                                        : QStringLiteral("rows changed");
        case EndLogin:
            return m_deleteFailures > 0                   ? QStringLiteral("deleteFailed")
                   : m_logins->rowCount() != m_rowsBefore ? QStringLiteral("ended")
                                                          : QString();
        case PasswordReset:
            return m_resetStatus < 0 ? QString() : QString::number(m_resetStatus);
        default: // a login or the logout
            return busy ? QString() : status + QLatin1Char(' ') + error;
        }
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(FastPace));
        // The library's lines about the faults come by the hundred: only the token failures count.
        QLoggingCategory::setFilterRules(
            QStringLiteral("vantro.*=false\nvantro.account.service.critical=true"));
        vn::test::collectLogMessages();
        m_deviceKey = AccountFixture::demoDeviceKey();
        m_resetNetwork = m_fixture.resetRedirect();
        m_engine.setNetworkAccessManagerFactory(m_resetNetwork.get());
        m_engine.networkAccessManager()->setTransferTimeout(TransferTimeout);
        vn::network::NetworkAccessManager::sharedInstance()->setTransferTimeout(TransferTimeout);
        m_account = std::make_unique<Account>();
        connect(m_account.get(), &Account::error, this,
                [this](Account::Error error) { m_errors.append(error); });
    }

    void cleanup()
    {
        m_fixture.service.clearFaults();
        m_logins.reset();
    }

    // Faults that end alike share a line; each fault is a row of its own.
    void matrix_data()
    {
        QTest::addColumn<int>("call");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("expected"); // "outcome | profile"
        QTest::addColumn<QString>("recovered");
        // A cell: "faults | outcome | profile".
        const auto rows = [](Call call, const char *recovered, const QStringList &cells) {
            for (const QString &cell : cells) {
                for (const QString &fault :
                     cell.section(QStringLiteral(" | "), 0, 0).split(QLatin1Char(' '))) {
                    const QByteArray name = QByteArray(Paths[call].name) + ": " + fault.toLatin1();
                    QTest::newRow(name.constData())
                        << int(call) << fault << cell.section(QStringLiteral(" | "), 1) << recovered;
                }
            }
        };
        // A failed login leaves the signed-out profile as it was; a device's answer fails as a password does.
        const QStringList loginCells{"500 503 | Disconnected ServiceFailure | kept",
                                     "401 403 404 malformed shape | Disconnected AuthenticationFailed | kept",
                                     "dropped cut silent oversized | Disconnected ServiceUnavailable | kept"};
        rows(Login, "Connected NoError", loginCells);
        rows(DeviceAnswer, "Connected NoError", loginCells);
        // A challenge answer without a challenge is the service's failure.
        rows(DeviceChallenge, "Connected NoError",
             {"500 503 malformed shape | Disconnected ServiceFailure | kept",
              "401 403 404 | Disconnected AuthenticationFailed | kept",
              "dropped cut silent oversized | Disconnected ServiceUnavailable | kept"});
        // Only a 401 of the online check ends the login; a 200 that does not read still says online.
        rows(OnlineCheck, "Connected online",
             {"500 503 403 404 dropped cut silent oversized | Connected offline | kept",
              "401 | Disconnected offline | wiped", "malformed shape | Connected online | kept"});
        // A logout always ends signed out.
        rows(Logout, "Disconnected NoError",
             {"500 503 401 403 404 | Disconnected ServiceFailure | wiped",
              "dropped cut silent oversized | Disconnected ServiceUnavailable | wiped",
              "malformed shape | Disconnected NoError | wiped"});
        // A failed update keeps the record; forged records are dropped, and the answer is kept as
        // it came (it is verified again on the next start).
        const QString failures = "500 503 401 403 404 dropped cut silent malformed shape oversized";
        rows(ConsumerUpdate, "Connected online, new", {failures + " | Connected online, kept | kept"});
        rows(IdentityUpdate, "Connected online, new",
             {failures + " | Connected online, kept | kept",
              "forged | Connected online, none | changed identity"});
        rows(ResourceUpdate, "Connected online, new",
             {failures + " | Connected online, kept | kept",
              "forged | Connected online, none | changed resources"});
        rows(ServiceToken, "Ready", {failures + " | Pending | kept"});
        // A failed list leaves the rows; an answer that is not an array empties them.
        rows(LoginList, "rows kept",
             {"500 503 401 403 404 dropped cut silent oversized | rows kept | kept",
              "malformed shape | rows emptied | kept"});
        // Only the status counts for ending a login.
        rows(EndLogin, "ended",
             {"500 503 401 403 404 dropped cut silent oversized | deleteFailed | kept",
              "malformed shape | ended | kept"});
        // The status as it came, 0 for none.
        rows(PasswordReset, "201",
             {"500 | 500 | kept", "503 | 503 | kept", "401 | 401 | kept", "403 | 403 | kept",
              "404 | 404 | kept", "dropped cut silent oversized | 0 | kept", "malformed shape | 201 | kept"});
    }

    void matrix()
    {
        QFETCH(int, call);
        QFETCH(QString, fault);
        QFETCH(QString, expected);
        QFETCH(QString, recovered);
        const CallPath &target = Paths[call];

        QVERIFY(prepare(Call(call)));
        Fault played;
        played.path = QStringLiteral("api/v1/") + QLatin1String(target.path);
        played.method = target.method;
        played.skip = target.skip;
        // A silent service's late answer changes nothing there: the client has given up on it.
        played.status = fault == "silent" ? 504 : fault.toInt();
        played.delay = fault == "silent" ? SilentDelay : 0;
        played.dropConnection = fault == "dropped";
        played.truncateBody = fault == "cut";
        played.malformedBody = fault == "malformed";
        played.body = fault == "shape" ? (target.array ? R"({"id": 42})" : R"([{"id": 42}])") : QByteArray();
        played.padTo = fault == "oversized" ? int(vn::Request::DefaultMaximumResponseSize) + 1 : 0;
        played.badSignature = fault == "forged";
        // Qt sends a request once more on a connection that closed before any answer.
        played.count = (target.repeats ? 2 : 1) * (played.dropConnection ? 2 : 1);
        const QMap<QString, QByteArray> before = this->profile();
        m_fixture.service.addFault(played);
        if (target.repeats) {
            // An answer under way when the fault came is handled before the first faulted request.
            QTRY_VERIFY(m_fixture.service.faults().value(0).count < played.count);
            m_before = record(Call(call));
        }
        start(Call(call));
        // A repeating request is asked again only once the last answer was handled: when the fault's
        // last request has reached the service, its first one has been dealt with.
        QVERIFY(QTest::qWaitFor(
            [&] {
                return target.repeats ? m_fixture.service.faults().isEmpty() ||
                                            m_account->status() == Account::Disconnected
                                      : !outcome(Call(call)).isEmpty();
            },
            10000));
        QCOMPARE(outcome(Call(call)) + " | " + profileChange(before, this->profile()), expected);

        m_fixture.service.clearFaults();
        m_before = call == ConsumerUpdate ? m_before : nullptr; // a forged chain or list comes back
        if (!target.repeats || m_account->status() != Account::Connected) {
            QVERIFY(prepare(Call(call)));
            start(Call(call));
        } else {
            // Two requests served as they are: the answer to the first has been handled.
            m_fixture.addFault(QLatin1String(target.path), target.method, 0, 2);
            QTRY_VERIFY(m_fixture.service.faults().isEmpty());
        }
        QTRY_COMPARE_WITH_TIMEOUT(outcome(Call(call)), recovered, 10000);
    }
};

QTEST_MAIN(TestFaultMatrix)
#include "tst_faultmatrix.moc"
