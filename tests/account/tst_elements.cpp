// The elements of the user interface against the development service in-process: permission and
// role answers that follow the signed-in user, the login list and the end of another login, and the
// password reset with the answers the service gives.

#include "accountfixture.h"
#include "timescale_p.h"

#include <Vantro/deleterequest.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/loginlistmodel.h>
#include <VantroAccount/passwordreset.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/role.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QJsonDocument>
#include <QQmlEngine>
#include <QSignalSpy>
#include <QTest>

using namespace vn::account;
using F = AccountFixture;

// The schedule a hundred times as fast: the login list's minute passes in 0.6 s.
static constexpr double FastPace = 0.01;

class TestElements : public QObject
{
    Q_OBJECT

    AccountFixture m_fixture;
    Account m_account;

    void signIn()
    {
        if (m_account.status() != Account::Connected) {
            QVERIFY(F::connect(m_account, false));
        }
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_fixture.start(FastPace)); }

    void cleanup() { m_fixture.service.clearFaults(); }

    // Ada holds 0x23, 0x4f, 0x11 and 0x20001, and the roles admin and author.
    void presence_data()
    {
        QTest::addColumn<int>("permission");
        QTest::addColumn<QStringList>("roles");
        QTest::addColumn<bool>("signedIn");

        QTest::newRow("nothing required") << 0 << QStringList() << true;
        QTest::newRow("within one entry") << 0x21 << QStringList{"admin"} << true;
        QTest::newRow("journal, all roles") << 0x20001 << QStringList{"author", "admin"} << true;
        QTest::newRow("bits of two entries") << 0x28 << QStringList{"admin", "viewer"} << false;
        QTest::newRow("case of a role") << 0x80 << QStringList{"Admin"} << false;
    }

    // Signed out, then in, then out again: each answer turns once, and only when it changes.
    void presence()
    {
        QFETCH(int, permission);
        QFETCH(QStringList, roles);
        QFETCH(bool, signedIn);
        const bool required = permission != 0;
        if (m_account.status() == Account::Connected) {
            m_account.logout();
            QTRY_COMPARE(m_account.status(), Account::Disconnected);
        }

        Permission permissionElement;
        Role roleElement;
        QSignalSpy permissionChanges(&permissionElement, &Permission::presentChanged);
        QSignalSpy roleChanges(&roleElement, &Role::presentChanged);
        QSignalSpy requireChanges(&roleElement, &Role::requireChanged);
        permissionElement.setRequire(Permission::PermissionFlags(permission));
        permissionElement.setRequire(Permission::PermissionFlags(permission));
        roleElement.setRequire(roles);
        roleElement.setRequire(roles);
        QCOMPARE(permissionElement.present(), !required);
        QCOMPARE(roleElement.present(), roles.isEmpty());
        QCOMPARE(requireChanges.count(), roles.isEmpty() ? 0 : 1);

        permissionChanges.clear();
        roleChanges.clear();
        signIn();
        QCOMPARE(permissionElement.present(), signedIn);
        QCOMPARE(roleElement.present(), signedIn);
        QCOMPARE(permissionChanges.count(), required && signedIn ? 1 : 0);
        QCOMPARE(roleChanges.count(), required && signedIn ? 1 : 0);

        // Another order of the same roles is a new requirement with the same answer.
        std::reverse(roles.begin(), roles.end());
        roleElement.setRequire(roles);
        QCOMPARE(requireChanges.count(), roles.size() > 1 ? 2 : roles.isEmpty() ? 0 : 1);
        QCOMPARE(roleChanges.count(), required && signedIn ? 1 : 0);

        // New permissions from the service move the Permission only; new roles the Role only.
        Consumer *consumer = m_account.consumer();
        QJsonObject record{{"id", consumer->identifier()},
                           {"roles", QJsonArray::fromStringList(consumer->roles())}};
        consumer->update(record);
        QCOMPARE(permissionElement.present(), !required);
        QCOMPARE(roleElement.present(), signedIn);
        record.insert(QStringLiteral("permissions"), QJsonArray{permission});
        record.insert(QStringLiteral("roles"), QJsonArray());
        consumer->update(record);
        QCOMPARE(permissionElement.present(), true);
        QCOMPARE(roleElement.present(), roles.isEmpty());

        m_account.logout();
        QTRY_COMPARE(m_account.status(), Account::Disconnected);
        QCOMPARE(permissionElement.present(), !required);
        QCOMPARE(roleElement.present(), roles.isEmpty());
    }

    // Ada's login here and a second one elsewhere: the list shows both, this client's own marked,
    // ends the other one, and reports an end the service refuses.
    void loginList()
    {
        signIn();
        CredentialAuthenticator elsewhere;
        elsewhere.setUserName(vn::test::demo::Ada);
        elsewhere.setPassword(vn::test::demo::AdaPassword);
        elsewhere.setNetwork(vn::network::NetworkAccessManager::sharedInstance());
        elsewhere.setHostInfo(QStringLiteral("elsewhere"));
        QSignalSpy loggedIn(&elsewhere, &AbstractAuthenticator::finished);
        elsewhere.start();
        QVERIFY(loggedIn.wait());

        // This model polls at the real pace, so no new list replaces the rows while a DELETE runs.
        vn::account::TimeScale::setFactor(1);
        LoginListModel model;
        vn::account::TimeScale::setFactor(FastPace);
        QSignalSpy failures(&model, &LoginListModel::deleteFailed);
        QTRY_COMPARE(model.rowCount(), 2);
        QCOMPARE(model.roleNames(), (QHash<int, QByteArray>{{257, "sessionId"},
                                                            {258, "activeSince"},
                                                            {259, "hostInfo"},
                                                            {260, "currentSession"},
                                                            {261, "deletePending"}}));
        const int own = model.index(0).data(LoginListModel::CurrentSessionRole).toBool() ? 0 : 1;
        const QModelIndex other = model.index(1 - own);
        QCOMPARE(model.index(own).data(LoginListModel::SessionIdRole).toString(),
                 m_account.session()->identifier());
        QCOMPARE(other.data(LoginListModel::HostInfoRole).toString(), QStringLiteral("elsewhere"));
        QVERIFY(other.data(LoginListModel::ActiveSinceRole).toDateTime().isValid());
        QVERIFY(!model.index(2).data(LoginListModel::SessionIdRole).isValid());
        QVERIFY(!other.data(Qt::UserRole).isValid());
        const QString otherId = other.data(LoginListModel::SessionIdRole).toString();

        QTest::ignoreMessage(QtWarningMsg, "Cannot delete active session");
        model.deleteLogin(model.index(own).data(LoginListModel::SessionIdRole).toString());
        // Only 200 ends a login; another success status is a refusal. (Not 204: the service's fault
        // answers carry a body, which a 204 must not have.)
        m_fixture.addFault(QStringLiteral("logins/*"), "DELETE", 202);
        model.deleteLogin(otherId);
        QVERIFY(other.data(LoginListModel::DeletePendingRole).toBool());
        QTest::ignoreMessage(
            QtWarningMsg,
            qPrintable(QStringLiteral("Delete of login \"%1\" is already pending").arg(otherId)));
        model.deleteLogin(otherId);
        QTRY_COMPARE(failures.count(), 1);
        QCOMPARE(failures.at(0).at(0).toString(), otherId);
        QVERIFY(!other.data(LoginListModel::DeletePendingRole).toBool());
        QCOMPARE(m_fixture.countRequests("DELETE", otherId.toUtf8()), 1);

        model.deleteLogin(otherId);
        QTRY_COMPARE(model.rowCount(), 1);
        QCOMPARE(m_fixture.service.logins().size(), 1);
        QCOMPARE(failures.count(), 1);

        // A list that is not an array leaves none; a failed one leaves the rows as they were.
        LoginListModel polled;
        QTRY_COMPARE(polled.rowCount(), 1);
        m_fixture.addFault(QStringLiteral("logins"), "GET", 503);
        QTRY_COMPARE(m_fixture.service.faults().size(), 0);
        QCOMPARE(polled.rowCount(), 1);
        m_fixture.addFault(QStringLiteral("logins"), "GET", F::Malformed);
        QTRY_COMPARE(polled.rowCount(), 0);
    }

    void passwordReset_data()
    {
        QTest::addColumn<QString>("email");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<int>("fault");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("language");

        QTest::newRow("known user") << vn::test::demo::Ada << "de_AT" << 0 << 201 << "de";
        QTest::newRow("unknown user") << "nobody@example.com"
                                      << "C" << 0 << 404 << "C";
        QTest::newRow("service failure") << ""
                                         << "fr_FR" << 500 << 500 << "fr";
    }

    void passwordReset()
    {
        QFETCH(QString, email);
        QFETCH(QString, locale);
        QFETCH(int, fault);
        QFETCH(int, status);
        QFETCH(QString, language);
        QLocale::setDefault(QLocale(locale));
        const auto factory = m_fixture.resetRedirect();
        QQmlEngine engine;
        engine.setNetworkAccessManagerFactory(factory.get());
        PasswordReset reset;
        reset.setEmail(email);

        QTest::ignoreMessage(QtCriticalMsg, "Failed to obtain QML engine");
        reset.requestReset();
        QVERIFY(!reset.isBusy());

        QQmlEngine::setContextForObject(&reset, engine.rootContext());
        if (fault) {
            m_fixture.addFault(QStringLiteral("password-reset"), "POST", fault);
            QTest::ignoreMessage(QtCriticalMsg,
                                 "QJsonValue(object, QJsonObject({\"error\":\"injected fault\"}))");
        }
        QSignalSpy finished(&reset, &PasswordReset::finished);
        QSignalSpy busy(&reset, &PasswordReset::busyChanged);
        m_fixture.service.clearJournal();
        reset.requestReset();
        QVERIFY(reset.isBusy());
        QTest::ignoreMessage(QtWarningMsg, "Cannot send request while busy");
        reset.requestReset();
        QVERIFY(finished.wait());
        QCOMPARE(finished.at(0).at(0).toInt(), status);
        QCOMPARE(busy.count(), 2);
        QVERIFY(!reset.isBusy());
        QCOMPARE(m_fixture.countRequests("POST", "/password-reset"), 1);
        for (const auto &request : m_fixture.service.journal()) {
            if (request.path == "/api/v1/password-reset") {
                QCOMPARE(QJsonDocument::fromJson(request.body).object(),
                         (QJsonObject{{"username", email}, {"language", language}}));
                QVERIFY(!request.headers.contains("authorization"));
            }
        }
        QLocale::setDefault(QLocale::c());
    }
};

QTEST_MAIN(TestElements)
#include "tst_elements.moc"
