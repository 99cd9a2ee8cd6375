#include "accountinstance.h"

#include <VantroAccount/consumer.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/session.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QtTest>

using vn::account::AccountInstance;
using vn::account::Consumer;
using vn::account::Permission;
using vn::account::Session;

namespace {

// Records as the account service writes them.
QJsonObject json(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

const char *const ServiceConsumer = R"({
    "id": "c-2041",
    "name": "Ada Example",
    "email": "ada@example.org",
    "permissions": [35, 131073, 80],
    "roles": ["author", "reviewer"]
})";

// Counts each of the consumer's change signals.
struct ChangeSpies
{
    explicit ChangeSpies(Consumer *consumer)
        : name(consumer, &Consumer::nameChanged)
        , email(consumer, &Consumer::emailChanged)
        , permissions(consumer, &Consumer::permissionsChanged)
        , roles(consumer, &Consumer::rolesChanged)
    {}

    QList<int> counts() const { return {name.count(), email.count(), permissions.count(), roles.count()}; }

    QSignalSpy name;
    QSignalSpy email;
    QSignalSpy permissions;
    QSignalSpy roles;
};

} // namespace

class TestRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void session_data()
    {
        QTest::addColumn<QByteArray>("record");
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("hostInfo");
        QTest::addColumn<QDateTime>("since");

        QTest::newRow("service record")
            << QByteArray(
                   R"({"id": "s-77", "hostInfo": "WS-17@lab [3f2a9c0d]", "since": "2024-03-05T08:15:30Z"})")
            << QStringLiteral("s-77") << QStringLiteral("WS-17@lab [3f2a9c0d]")
            << QDateTime(QDate(2024, 3, 5), QTime(8, 15, 30), Qt::UTC);
        QTest::newRow("offset kept as the same instant")
            << QByteArray(R"({"id": "s-78", "hostInfo": "h", "since": "2024-03-05T10:15:30+02:00"})")
            << QStringLiteral("s-78") << QStringLiteral("h")
            << QDateTime(QDate(2024, 3, 5), QTime(8, 15, 30), Qt::UTC);
        QTest::newRow("day that does not exist")
            << QByteArray(R"({"id": "s-79", "hostInfo": "h", "since": "2024-02-30T08:00:00Z"})")
            << QStringLiteral("s-79") << QStringLiteral("h") << QDateTime();
        QTest::newRow("not a date") << QByteArray(R"({"id": "s-80", "since": "yesterday"})")
                                    << QStringLiteral("s-80") << QString() << QDateTime();
        QTest::newRow("wrongly typed members")
            << QByteArray(R"({"id": 12, "hostInfo": ["h"], "since": 1709626530})") << QString() << QString()
            << QDateTime();
        QTest::newRow("empty object") << QByteArray("{}") << QString() << QString() << QDateTime();
    }

    void session()
    {
        QFETCH(QByteArray, record);
        QFETCH(QString, identifier);
        QFETCH(QString, hostInfo);
        QFETCH(QDateTime, since);

        AccountInstance instance;
        const Session session(QJsonDocument::fromJson(record).object(), &instance);
        QCOMPARE(session.parent(), &instance);
        QCOMPARE(session.identifier(), identifier);
        QCOMPARE(session.hostInfo(), hostInfo);
        QCOMPARE(session.since().isNull(), since.isNull());
        QCOMPARE(session.since(), since);
        QCOMPARE(session.property("since").toDateTime(), since);
    }

    void consumerFromServiceRecord()
    {
        AccountInstance instance;
        const Consumer consumer(json(ServiceConsumer), &instance);
        QCOMPARE(consumer.parent(), &instance);
        QCOMPARE(consumer.identifier(), QStringLiteral("c-2041"));
        QCOMPARE(consumer.name(), QStringLiteral("Ada Example"));
        QCOMPARE(consumer.email(), QStringLiteral("ada@example.org"));
        QCOMPARE(consumer.permissions(), (QList<int>{0x23, 0x20001, 0x50}));
        QCOMPARE(consumer.roles(), (QStringList{QStringLiteral("author"), QStringLiteral("reviewer")}));
        // Construction reads with signals blocked; they must be live again afterwards.
        QVERIFY(!consumer.signalsBlocked());
    }

    void update_data()
    {
        QTest::addColumn<QJsonObject>("record");
        QTest::addColumn<QList<int>>("changes"); // name, email, permissions, roles

        // Each row is the service record above with some members replaced.
        const auto changed = [](const QString &key, const QJsonValue &value) {
            QJsonObject record = json(ServiceConsumer);
            record.insert(key, value);
            return record;
        };
        QTest::newRow("same record") << json(ServiceConsumer) << QList<int>{0, 0, 0, 0};
        QTest::newRow("email only") << changed(QStringLiteral("email"), QStringLiteral("ada@example.net"))
                                    << QList<int>{0, 1, 0, 0};
        QTest::newRow("name only") << changed(QStringLiteral("name"), QStringLiteral("Ada E."))
                                   << QList<int>{1, 0, 0, 0};
        QTest::newRow("new id is no change")
            << changed(QStringLiteral("id"), QStringLiteral("c-9")) << QList<int>{0, 0, 0, 0};
        QTest::newRow("permissions reordered")
            << changed(QStringLiteral("permissions"), QJsonArray{80, 35, 131073}) << QList<int>{0, 0, 1, 0};
        QTest::newRow("dropped entries are no change")
            << changed(QStringLiteral("permissions"),
                       QJsonArray{0, 35, -4, 131073, QStringLiteral("7"), 80, 1.5})
            << QList<int>{0, 0, 0, 0};
        QTest::newRow("role case changed")
            << changed(QStringLiteral("roles"),
                       QJsonArray{QStringLiteral("Author"), QStringLiteral("reviewer")})
            << QList<int>{0, 0, 0, 1};
        QTest::newRow("missing keys clear everything")
            << QJsonObject{{QStringLiteral("id"), QStringLiteral("c-2041")}} << QList<int>{1, 1, 1, 1};
    }

    void update()
    {
        QFETCH(QJsonObject, record);
        QFETCH(QList<int>, changes);

        AccountInstance instance;
        Consumer consumer(json(ServiceConsumer), &instance);
        ChangeSpies spies(&consumer);
        consumer.update(record);
        QCOMPARE(spies.counts(), changes);
        QCOMPARE(consumer.identifier(), record.value(QLatin1String("id")).toString());
        QCOMPARE(consumer.email(), record.value(QLatin1String("email")).toString());

        // A second, identical update changes nothing.
        consumer.update(record);
        QCOMPARE(spies.counts(), changes);
    }

    void permissions_data()
    {
        QTest::addColumn<QByteArray>("permissions");
        QTest::addColumn<QList<int>>("expected");

        QTest::newRow("only positive integers are kept")
            << QByteArray(R"([3, 0, -1, "5", 2.5])") << QList<int>{3};
        QTest::newRow("order and repeats are kept") << QByteArray("[64, 1, 64]") << QList<int>{64, 1, 64};
        QTest::newRow("journal bit") << QByteArray("[131079]") << QList<int>{0x20007};
        QTest::newRow("largest 32-bit value") << QByteArray("[2147483647]") << QList<int>{0x7fffffff};
        QTest::newRow("beyond 32 bits") << QByteArray("[4294967297, 1e300, 8]") << QList<int>{8};
        QTest::newRow("other JSON types") << QByteArray(R"([true, null, {"p": 1}, [1]])") << QList<int>{};
        QTest::newRow("not an array") << QByteArray(R"({"read": 1})") << QList<int>{};
    }

    void permissions()
    {
        QFETCH(QByteArray, permissions);
        QFETCH(QList<int>, expected);

        const QByteArray record = R"({"permissions": )" + permissions + '}';
        const Consumer consumer(QJsonDocument::fromJson(record).object(), nullptr);
        QCOMPARE(consumer.permissions(), expected);
        QCOMPARE(consumer.property("permissions").value<QList<int>>(), expected);
    }

    void hasPermission_data()
    {
        QTest::addColumn<QList<int>>("granted");
        QTest::addColumn<Permission::PermissionFlags>("requested");
        QTest::addColumn<bool>("expected");

        const QList<int> none;
        QTest::newRow("nothing asked, nothing granted") << none << Permission::PermissionFlags() << true;
        QTest::newRow("read, nothing granted")
            << none << Permission::PermissionFlags(Permission::ReadPermission) << false;
        QTest::newRow("both bits in one entry")
            << QList<int>{0x23} << (Permission::ConsumerType | Permission::ReadPermission) << true;
        QTest::newRow("bits spread over two entries")
            << QList<int>{0x20, 0x1} << (Permission::ConsumerType | Permission::ReadPermission) << false;
        QTest::newRow("second entry matches")
            << QList<int>{0x11, 0x4f} << (Permission::ResourceType | Permission::DeletePermission) << true;
        QTest::newRow("one bit short")
            << QList<int>{0x1f}
            << (Permission::AccountType | Permission::ModifyPermission | Permission::ResourceType) << false;
        QTest::newRow("journal") << QList<int>{0x20001} << (Permission::Journal | Permission::ReadPermission)
                                 << true;
        QTest::newRow("journal is not a low bit")
            << QList<int>{0x7f} << Permission::PermissionFlags(Permission::Journal) << false;
    }

    void hasPermission()
    {
        QFETCH(QList<int>, granted);
        QFETCH(Permission::PermissionFlags, requested);
        QFETCH(bool, expected);

        QJsonArray permissions;
        for (const int entry : qAsConst(granted)) {
            permissions.append(entry);
        }
        const Consumer consumer(QJsonObject{{QStringLiteral("permissions"), permissions}}, nullptr);
        QCOMPARE(consumer.hasPermission(requested), expected);

        // QML calls it through the meta-object, with the flag type it registers.
        bool invoked = !expected;
        QVERIFY(QMetaObject::invokeMethod(const_cast<Consumer *>(&consumer), "hasPermission",
                                          Q_RETURN_ARG(bool, invoked),
                                          Q_ARG(vn::account::Permission::PermissionFlags, requested)));
        QCOMPARE(invoked, expected);
    }

    void roles_data()
    {
        QTest::addColumn<QByteArray>("roles");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QString>("asked");
        QTest::addColumn<bool>("present");

        const QByteArray adminRoles = R"(["admin", "", "Admin"])";
        const QStringList adminList{QStringLiteral("admin"), QStringLiteral("Admin")};
        QTest::newRow("exact case") << adminRoles << adminList << QStringLiteral("Admin") << true;
        QTest::newRow("other case") << adminRoles << adminList << QStringLiteral("ADMIN") << false;
        QTest::newRow("empty name") << adminRoles << adminList << QString() << false;
        QTest::newRow("empty name with an empty role sent")
            << QByteArray(R"([""])") << QStringList() << QStringLiteral("") << false;
        QTest::newRow("non-string roles dropped")
            << QByteArray(R"([7, "editor", null, {"r": "x"}])") << QStringList{QStringLiteral("editor")}
            << QStringLiteral("editor") << true;
        QTest::newRow("no partial match")
            << QByteArray(R"(["editor"])") << QStringList{QStringLiteral("editor")} << QStringLiteral("edit")
            << false;
    }

    void roles()
    {
        QFETCH(QByteArray, roles);
        QFETCH(QStringList, expected);
        QFETCH(QString, asked);
        QFETCH(bool, present);

        const QByteArray record = R"({"roles": )" + roles + '}';
        const Consumer consumer(QJsonDocument::fromJson(record).object(), nullptr);
        QCOMPARE(consumer.roles(), expected);
        QCOMPARE(consumer.hasRole(asked), present);
    }

    // QML writes permissions by flag name: the names must resolve to the service's values.
    void flagNames()
    {
        const QMetaObject &meta = Permission::staticMetaObject;
        const QMetaEnum flags = meta.enumerator(meta.indexOfEnumerator("PermissionFlags"));
        QVERIFY(flags.isValid());
        QVERIFY(flags.isFlag());
        bool ok = false;
        QCOMPARE(flags.keysToValue("ConsumerType|ReadPermission|ModifyPermission", &ok), 0x23);
        QVERIFY(ok);
        QCOMPARE(flags.keysToValue("Journal|DeletePermission|ResourceType|AccountType", &ok), 0x20058);
        QVERIFY(ok);
        QCOMPARE(flags.keysToValue("CreatePermission", &ok), 0x4);
        QCOMPARE(flags.keyToValue("NoPermission", &ok), 0);
        QVERIFY(ok);
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
