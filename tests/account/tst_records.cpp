// Session and consumer records as the service writes them: dates, updates that signal only what
// changed, permissions and roles.

#include "accountinstance.h"
#include "testjson.h"

#include <VantroAccount/account.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/session.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

using vn::account::AccountInstance;
using vn::account::Consumer;
using vn::account::Permission;
using vn::account::Session;

using vn::test::jsonObject;

static const char ServiceConsumer[] = "{'id': 'c-2041', 'name': 'Ada', 'email': 'ada@example.org',"
                                      " 'permissions': [35, 131073, 80], 'roles': ['author', 'reviewer']}";

class TestRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void session()
    {
        AccountInstance instance(vn::account::Account::profile());
        const Session session(jsonObject("{'id': 's-77', 'since': '2024-03-05T10:15:30+02:00'}"), &instance);
        QCOMPARE(session.parent(), &instance);
        QCOMPARE(session.identifier(), QStringLiteral("s-77"));
        QCOMPARE(session.since(), QDateTime(QDate(2024, 3, 5), QTime(8, 15, 30), Qt::UTC));
        QVERIFY(Session(jsonObject("{'since': '2024-02-30T08:00:00Z'}"), nullptr).since().isNull());
    }

    void update_data()
    {
        QTest::addColumn<QJsonObject>("record");
        QTest::addColumn<QList<int>>("changes"); // name, email, permissions, roles

        const auto changed = [](const char *key, const QJsonValue &value) {
            QJsonObject record = jsonObject(ServiceConsumer);
            record.insert(QLatin1String(key), value);
            return record;
        };
        QTest::newRow("same record") << jsonObject(ServiceConsumer) << QList<int>{0, 0, 0, 0};
        QTest::newRow("name") << changed("name", "Ada E.") << QList<int>{1, 0, 0, 0};
        QTest::newRow("email") << changed("email", "ada@example.net") << QList<int>{0, 1, 0, 0};
        QTest::newRow("id is no change") << changed("id", "c-9") << QList<int>{0, 0, 0, 0};
        QTest::newRow("permissions reordered")
            << changed("permissions", QJsonArray{80, 35, 131073}) << QList<int>{0, 0, 1, 0};
        // Only positive 32-bit integers are permissions: the others are dropped, which changes nothing.
        QTest::newRow("dropped entries")
            << changed("permissions", QJsonArray{0, 35, -4, 131073, "7", 80, 1.5, 2147483648., true})
            << QList<int>{0, 0, 0, 0};
        QTest::newRow("role case") << changed("roles", QJsonArray{"Author", "reviewer"})
                                   << QList<int>{0, 0, 0, 1};
        QTest::newRow("missing keys clear all") << QJsonObject{{"id", "c-2041"}} << QList<int>{1, 1, 1, 1};
    }

    void update()
    {
        QFETCH(QJsonObject, record);
        QFETCH(QList<int>, changes);

        Consumer consumer(jsonObject(ServiceConsumer), nullptr);
        QSignalSpy name(&consumer, &Consumer::nameChanged);
        QSignalSpy email(&consumer, &Consumer::emailChanged);
        QSignalSpy permissions(&consumer, &Consumer::permissionsChanged);
        QSignalSpy roles(&consumer, &Consumer::rolesChanged);
        for (int round = 0; round < 2; ++round) { // the second, identical update changes nothing
            consumer.update(record);
            QCOMPARE((QList<int>{name.count(), email.count(), permissions.count(), roles.count()}), changes);
            QCOMPARE(consumer.identifier(), record[QLatin1String("id")].toString());
            QCOMPARE(consumer.email(), record[QLatin1String("email")].toString());
        }
    }

    // Flags: read 0x1, delete 0x8, account 0x10, consumer 0x20, resource 0x40, journal 0x20000.
    void hasPermission_data()
    {
        QTest::addColumn<QJsonArray>("granted");
        QTest::addColumn<int>("requested");
        QTest::addColumn<bool>("expected");

        QTest::newRow("nothing asked") << QJsonArray() << 0 << true;
        QTest::newRow("nothing granted") << QJsonArray() << 0x1 << false;
        QTest::newRow("bits in one entry") << QJsonArray{0x23} << 0x21 << true;
        QTest::newRow("bits in two entries") << QJsonArray{0x20, 1} << 0x21 << false;
        QTest::newRow("second entry") << QJsonArray{0x11, 0x4f} << 0x48 << true;
        QTest::newRow("journal") << QJsonArray{0x20001} << 0x20001 << true;
        QTest::newRow("journal is no low bit") << QJsonArray{0x7f} << 0x20000 << false;
        QTest::newRow("largest entry") << QJsonArray{0x7fffffff} << 0x20010 << true;
    }

    void hasPermission()
    {
        QFETCH(QJsonArray, granted);
        QFETCH(int, requested);
        QFETCH(bool, expected);

        Consumer consumer(QJsonObject{{"permissions", granted}}, nullptr);
        // QML calls it through the meta-object, with the registered flag type.
        bool invoked = !expected;
        QVERIFY(QMetaObject::invokeMethod(
            &consumer, "hasPermission", Q_RETURN_ARG(bool, invoked),
            Q_ARG(vn::account::Permission::PermissionFlags, Permission::PermissionFlags(requested))));
        QCOMPARE(invoked, expected);
    }

    void hasRole()
    {
        const Consumer consumer(jsonObject("{'roles': ['admin', '', 'Admin', 7]}"), nullptr);
        QCOMPARE(consumer.roles(), (QStringList{"admin", "Admin"}));
        QVERIFY(consumer.hasRole("Admin"));
        for (const char *absent : {"ADMIN", "adm", ""}) {
            QVERIFY2(!consumer.hasRole(QString::fromLatin1(absent)), absent);
        }
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
