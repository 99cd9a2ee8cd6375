// The elements of the user interface against the development service in-process.

#include "accountfixture.h"

#include <VantroAccount/consumer.h>
#include <VantroAccount/loginlistmodel.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/role.h>

#include <QQmlEngine>

using namespace vn::account;

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
            QVERIFY(AccountFixture::connect(m_account, false));
        }
    }

    void signOut()
    {
        m_account.logout();
        QTRY_COMPARE(m_account.status(), Account::Disconnected);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_fixture.start(FastPace)); }

    void cleanup() { m_fixture.service.clearFaults(); }

    // Ada holds 0x23, 0x4f, 0x11 and 0x20001, and the roles admin and author.
    void presence_data()
    {
        QTest::addColumn<int>("permission");
        QTest::addColumn<QStringList>("roles");
        QTest::addColumn<int>("requireChanges");
        QTest::addColumn<QList<bool>>("seen"); // signed out, then each change

        const QList<bool> turns{false, true, false};
        QTest::newRow("nothing required") << 0 << QStringList() << 0 << QList<bool>{true};
        QTest::newRow("within one entry") << 0x21 << QStringList{"admin"} << 1 << turns;
        QTest::newRow("journal, all roles") << 0x20001 << QStringList{"author", "admin"} << 2 << turns;
        QTest::newRow("bits of two entries")
            << 0x28 << QStringList{"admin", "viewer"} << 2 << QList<bool>{false};
        QTest::newRow("case of a role") << 0x80 << QStringList{"Admin"} << 1 << QList<bool>{false};
    }

    // Signed out, then in, then out again: each answer turns only when it changes.
    void presence()
    {
        QFETCH(int, permission);
        QFETCH(QStringList, roles);
        QFETCH(int, requireChanges);
        QFETCH(QList<bool>, seen);
        if (m_account.status() == Account::Connected) {
            signOut();
        }
        Permission permissionElement;
        Role roleElement;
        QSignalSpy requireChanged(&roleElement, &Role::requireChanged);
        permissionElement.setRequire(Permission::PermissionFlags(permission));
        roleElement.setRequire(roles);
        roleElement.setRequire(roles);
        std::reverse(roles.begin(), roles.end()); // another order is a new requirement
        roleElement.setRequire(roles);
        QCOMPARE(requireChanged.count(), requireChanges);
        QList<bool> permissionSeen{permissionElement.present()};
        QList<bool> roleSeen{roleElement.present()};
        connect(&permissionElement, &Permission::presentChanged, this,
                [&] { permissionSeen.append(permissionElement.present()); });
        connect(&roleElement, &Role::presentChanged, this, [&] { roleSeen.append(roleElement.present()); });

        signIn();
        signOut();
        QCOMPARE(permissionSeen, seen);
        QCOMPARE(roleSeen, seen);
    }

    // New permissions from the service move the Permission only; new roles the Role only.
    void followsConsumer()
    {
        signIn();
        Permission permission;
        Role role;
        permission.setRequire(Permission::PermissionFlags(0x21));
        role.setRequire({QStringLiteral("admin")});
        Consumer *consumer = m_account.consumer();
        QJsonObject record{{"id", consumer->identifier()}, {"roles", QJsonArray{"admin"}}};
        consumer->update(record);
        QCOMPARE(QList<bool>({permission.present(), role.present()}), QList<bool>({false, true}));
        record.insert(QStringLiteral("permissions"), QJsonArray{0x21});
        record.insert(QStringLiteral("roles"), QJsonArray());
        consumer->update(record);
        QCOMPARE(QList<bool>({permission.present(), role.present()}), QList<bool>({true, false}));
    }

    // A login elsewhere is ended only by a 200, one request at a time; this client's own never.
    void endLogin()
    {
        signIn();
        QVERIFY(AccountFixture::logInElsewhere());

        // This model polls at the real pace, so no new list replaces the rows while a DELETE runs.
        vn::account::TimeScale::setFactor(1);
        LoginListModel model;
        vn::account::TimeScale::setFactor(FastPace);
        QSignalSpy failures(&model, &LoginListModel::deleteFailed);
        QTRY_COMPARE(model.rowCount(), 2);
        const int own = model.index(0).data(LoginListModel::CurrentSessionRole).toBool() ? 0 : 1;
        const QModelIndex other = model.index(1 - own);
        const QString otherId = other.data(LoginListModel::SessionIdRole).toString();
        QVERIFY(!model.index(2).data(LoginListModel::SessionIdRole).isValid());

        QTest::ignoreMessage(QtWarningMsg, "Cannot delete active session");
        model.deleteLogin(model.index(own).data(LoginListModel::SessionIdRole).toString());
        // Another success status is a refusal (not 204: fault answers carry a body).
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
        QCOMPARE(m_fixture.service.logins().size(), 2);
    }

    // The request names user and language, carries no token, needs a QML engine, one at a time.
    void passwordReset_data()
    {
        QTest::addColumn<QString>("email");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("language");

        QTest::newRow("known user") << demo::Ada << QStringLiteral("de_AT") << QStringLiteral("de");
        QTest::newRow("C locale") << QStringLiteral("nobody@example.com") << QStringLiteral("C")
                                  << QStringLiteral("C");
    }

    void passwordReset()
    {
        QFETCH(QString, email);
        QFETCH(QString, locale);
        QFETCH(QString, language);
        QLocale::setDefault(QLocale(locale));
        const auto restoreLocale = qScopeGuard([] { QLocale::setDefault(QLocale::c()); });
        const auto factory = m_fixture.resetRedirect();
        QQmlEngine engine;
        engine.setNetworkAccessManagerFactory(factory.get());
        PasswordReset reset;
        reset.setEmail(email);
        QTest::ignoreMessage(QtCriticalMsg, "Failed to obtain QML engine");
        reset.requestReset();
        QVERIFY(!reset.isBusy());

        QQmlEngine::setContextForObject(&reset, engine.rootContext());
        QSignalSpy finished(&reset, &PasswordReset::finished);
        m_fixture.service.clearJournal();
        reset.requestReset();
        QTest::ignoreMessage(QtWarningMsg, "Cannot send request while busy");
        reset.requestReset();
        QVERIFY(finished.wait()); // its status is the service's, as the fault matrix and the QML suite check
        const auto journal = m_fixture.service.journal();
        const auto sent = std::find_if(journal.cbegin(), journal.cend(), [](const auto &request) {
            return request.path == "/api/v1/password-reset";
        });
        QCOMPARE(m_fixture.countRequests("POST", "/password-reset"), 1);
        QCOMPARE(QJsonDocument::fromJson(sent->body).object(),
                 (QJsonObject{{"username", email}, {"language", language}}));
        QVERIFY(!sent->headers.contains("authorization"));
    }
};

QTEST_MAIN(TestElements)
#include "tst_elements.moc"
