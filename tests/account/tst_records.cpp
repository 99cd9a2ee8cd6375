// The records of an account as the service writes them: the access token and the claims decoded
// from it, the session, and the consumer with its permissions and roles.

#include "autotest_p.h"
#include "testjson.h"

#include <VantroAccount/accesstoken.h>
#include <VantroAccount/account.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/session.h>

#include <QtTest>

using namespace vn::account;

using vn::test::jsonObject;

static const char ServiceConsumer[] = "{'id': 'c-2041', 'name': 'Ada', 'email': 'ada@example.org',"
                                      " 'permissions': [35, 131073, 80], 'roles': ['author', 'reviewer']}";

static QByteArray encode(const char *json, QByteArray::Base64Options alphabet = QByteArray::Base64Encoding)
{
    return vn::test::json(json).toBase64(alphabet | QByteArray::OmitTrailingEquals);
}

static QByteArray jwt(const char *payload, const char *header = "{'typ':'JWT','alg':'RS256'}")
{
    return encode(header) + '.' + encode(payload) + ".c2ln";
}

class TestRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void construction_data()
    {
        QTest::addColumn<AccessToken>("token");
        QTest::addColumn<QByteArray>("bytes"); // valid when non-empty

        QTest::newRow("default") << AccessToken() << QByteArray();
        QTest::newRow("one space counts") << AccessToken(QStringLiteral(" ")) << QByteArray(" ");
        QTest::newRow("byte form is Latin-1")
            << AccessToken(QStringLiteral("caf\u00e9")) << QByteArray("caf\xe9");
        QTest::newRow("JSON without token") << AccessToken(QJsonObject()) << QByteArray();
        QTest::newRow("JSON token") << AccessToken(QJsonObject{{"token", "a.b.c"}}) << QByteArray("a.b.c");
    }

    void construction()
    {
        QFETCH(AccessToken, token);
        QFETCH(QByteArray, bytes);
        QCOMPARE(token.isValid(), !bytes.isEmpty());
        QCOMPARE(QByteArray(token), bytes);
    }

    // What a token holds is read from its debug print, which names every claim that was set.
    void parse_data()
    {
        QTest::addColumn<QByteArray>("compact");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("printed"); // between "[ alg: " and " ]"
        QTest::addColumn<int>("unparsableSegments");

        // RFC 7515, appendix A.1: header and payload carry CRLF whitespace, the signature "-" and "_".
        QTest::newRow("RFC 7515 A.1") << QByteArray("eyJ0eXAiOiJKV1QiLA0KICJhbGciOiJIUzI1NiJ9."
                                                    "eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkzODAsDQogImh0dHA6"
                                                    "Ly9leGFtcGxlLmNvbS9pc19yb290Ijp0cnVlfQ."
                                                    "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk")
                                      << true << "HS256, iss: joe, exp: 2011-03-22T18:43:00" << 0;
        QTest::newRow("all claims")
            << jwt("{'iss':'account','iat':1709287200,'sub':'42','aud':['db','files'],'exp':1709290800}")
            << true
            << "RS256, iss: account, iat: 2024-03-01T10:00:00, sub: 42, aud: {db, files}, exp: "
               "2024-03-01T11:00:00"
            << 0;
        // "???" is "Pz8/" in the standard alphabet and "Pz8_" in the URL-safe one, which the decoder
        // skips rather than maps; ">>>" is "Pj4+" and "Pj4-".
        const char *keyed = "{'typ':'JWT','alg':'RS256','kid':'?\?\?'}";
        QTest::newRow("standard alphabet")
            << jwt("{'sub':'?\?\?>>>'}", keyed) << true << "RS256, sub: ?\?\?>>>" << 0;
        QTest::newRow("URL-safe header") << QByteArray(encode(keyed, QByteArray::Base64UrlEncoding) + '.' +
                                                       encode("{'sub':'x'}") + ".c2ln")
                                         << false << "" << 1;
        QTest::newRow("URL-safe payload")
            << QByteArray(encode("{'typ':'JWT','alg':'RS256'}") + '.' +
                          encode("{'sub':'?\?\?>>>'}", QByteArray::Base64UrlEncoding) + ".c2ln")
            << false << "RS256" << 1;
        QTest::newRow("two pieces") << jwt("{'sub':'x'}").chopped(5) << false << "" << 0;
        QTest::newRow("four pieces") << QByteArray(jwt("{'sub':'x'}") + ".c2ln") << false << "" << 0;
        QTest::newRow("typ in lower case")
            << jwt("{'sub':'x'}", "{'typ':'jwt','alg':'RS256'}") << false << "" << 0;
        QTest::newRow("alg none") << jwt("{'sub':'x'}", "{'typ':'JWT','alg':'none'}") << false << "" << 0;
        QTest::newRow("empty payload") << jwt("{}") << false << "RS256" << 0;
        for (const char *name : {"HS256", "HS384", "HS512", "PS256", "PS384", "PS512", "RS256", "RS384",
                                 "RS512", "ES256", "ES256K", "ES384", "ES512", "EdDSA"}) {
            const QByteArray header = "{'typ':'JWT','alg':'" + QByteArray(name) + "'}";
            QTest::addRow("alg %s", name) << jwt("{'sub':'x'}", header.constData()) << true
                                          << QStringLiteral("%1, sub: x").arg(QLatin1String(name)) << 0;
        }
        // Times are positive 32-bit seconds, in local time (UTC here).
        QTest::newRow("largest time") << jwt("{'iat':2147483647,'exp':2147483647}") << true
                                      << "RS256, iat: 2038-01-19T03:14:07, exp: 2038-01-19T03:14:07" << 0;
        for (const char *claim : {"{'iat':2147483648,'exp':2147483648}", "{'iat':0,'exp':0}",
                                  "{'iat':1.5,'exp':1.5}", "{'iat':'1','exp':'1'}"}) {
            QTest::addRow("times %s", claim) << jwt(claim) << true << "RS256" << 0;
        }
        QTest::newRow("aud string") << jwt("{'aud':'x'}") << true << "RS256, aud: {x}" << 0;
        QTest::newRow("aud empty string") << jwt("{'aud':''}") << true << "RS256, aud: {}" << 0;
        QTest::newRow("aud with a number") << jwt("{'aud':[1,'b']}") << true << "RS256, aud: {, b}" << 0;
        QTest::newRow("aud number") << jwt("{'aud':5}") << true << "RS256" << 0;
    }

    void parse()
    {
        QFETCH(QByteArray, compact);
        QFETCH(bool, valid);
        QFETCH(QString, printed);
        QFETCH(int, unparsableSegments);
        for (int i = 0; i < unparsableSegments; ++i) {
            QTest::ignoreMessage(QtCriticalMsg,
                                 QRegularExpression(QStringLiteral("^Failed to parse JWT token data: \\S")));
        }
        const JsonWebToken token(compact);
        QCOMPARE(token.valid, valid);
        QCOMPARE(token.raw, valid ? compact : QByteArray());
        QString text;
        // What follows the token is printed in the stream's own quoting and spacing again.
        QDebug(&text) << token << QStringLiteral("next");
        QCOMPARE(text.trimmed(), QStringLiteral("[ alg: %1 ] \"next\"").arg(printed));
    }
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
        QCOMPARE((QList<bool>{consumer.hasRole("Admin"), consumer.hasRole("ADMIN"), consumer.hasRole("adm"),
                              consumer.hasRole("")}),
                 (QList<bool>{true, false, false, false}));
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
