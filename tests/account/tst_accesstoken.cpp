#include "jsonwebtoken_p.h"

#include <VantroAccount/accesstoken.h>

#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

using vn::account::AccessToken;
using vn::account::JsonWebToken;

namespace {

QByteArray encode(const QByteArray &json, QByteArray::Base64Options alphabet = QByteArray::Base64Encoding)
{
    return json.toBase64(alphabet | QByteArray::OmitTrailingEquals);
}

QByteArray compact(const QByteArray &header, const QByteArray &payload)
{
    return encode(header) + '.' + encode(payload) + ".c2ln";
}

const QByteArray rs256 = R"({"typ":"JWT","alg":"RS256"})";
const QByteArray sub42 = R"({"sub":"42"})";

} // namespace

class TestAccessToken : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void construction_data()
    {
        QTest::addColumn<AccessToken>("token");
        QTest::addColumn<QByteArray>("bytes"); // valid when non-empty

        QTest::newRow("default") << AccessToken() << QByteArray();
        QTest::newRow("one space counts") << AccessToken(QStringLiteral(" ")) << QByteArray(" ");
        QTest::newRow("expired token") << AccessToken(QString::fromLatin1(compact(rs256, R"({"exp":1})")))
                                       << compact(rs256, R"({"exp":1})");
        QTest::newRow("byte form is Latin-1")
            << AccessToken(QStringLiteral("caf\u00e9")) << QByteArray("caf\xe9");
        QTest::newRow("JSON without token") << AccessToken(QJsonObject()) << QByteArray();
        QTest::newRow("JSON token not a string")
            << AccessToken(QJsonDocument::fromJson(R"({"token":5})").object()) << QByteArray();
        QTest::newRow("JSON token") << AccessToken(QJsonDocument::fromJson(R"({"token":"a.b.c"})").object())
                                    << QByteArray("a.b.c");
    }

    void construction()
    {
        QFETCH(AccessToken, token);
        QFETCH(QByteArray, bytes);
        QCOMPARE(token.isValid(), !bytes.isEmpty());
        QCOMPARE(QByteArray(token), bytes);
    }

    void copyOutlivesOriginal()
    {
        AccessToken copy;
        {
            const AccessToken original(QStringLiteral("header.payload.signature"));
            copy = original;
        }
        QCOMPARE(QByteArray(copy), QByteArray("header.payload.signature"));
    }

    // RFC 7515, appendix A.1: the header and payload carry CRLF whitespace, the signature "-" and "_".
    void parsesRfc7515Example()
    {
        const QByteArray example = "eyJ0eXAiOiJKV1QiLA0KICJhbGciOiJIUzI1NiJ9"
                                   ".eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkzODAsDQogImh0dHA6Ly9leGFt"
                                   "cGxlLmNvbS9pc19yb290Ijp0cnVlfQ"
                                   ".dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
        const JsonWebToken token(example);
        QVERIFY(token.valid);
        QCOMPARE(token.raw, example);
        QCOMPARE(token.alg, QStringLiteral("HS256"));
        QCOMPARE(token.iss, QStringLiteral("joe"));
        QCOMPARE(token.exp.toSecsSinceEpoch(), 1300819380);
        QVERIFY(token.iat.isNull());
    }

    void parse_data()
    {
        QTest::addColumn<QByteArray>("compact");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("alg");
        QTest::addColumn<int>("unparsableSegments");

        // "???" is "Pz8/" in the standard alphabet and "Pz8_" in the URL-safe one, which the
        // decoder skips rather than maps.
        const QByteArray keyed = R"({"typ":"JWT","alg":"RS256","kid":"???key???"})";
        QTest::newRow("standard alphabet")
            << encode(keyed) + '.' + encode(sub42) + ".c2ln" << true << "RS256" << 0;
        QTest::newRow("URL-safe header")
            << encode(keyed, QByteArray::Base64UrlEncoding) + '.' + encode(sub42) + ".c2ln" << false << ""
            << 1;
        QTest::newRow("URL-safe payload")
            << encode(rs256) + '.' + encode(R"({"sub":"???>>>"})", QByteArray::Base64UrlEncoding) + ".c2ln"
            << false << "RS256" << 1;
        QTest::newRow("two pieces") << encode(rs256) + '.' + encode(sub42) << false << "" << 0;
        QTest::newRow("four pieces") << compact(rs256, sub42) + ".c2ln" << false << "" << 0;
        QTest::newRow("typ lower case")
            << compact(R"({"typ":"jwt","alg":"RS256"})", sub42) << false << "" << 0;
        QTest::newRow("typ missing") << compact(R"({"alg":"RS256"})", sub42) << false << "" << 0;
        QTest::newRow("alg none") << compact(R"({"typ":"JWT","alg":"none"})", sub42) << false << "" << 0;
        QTest::newRow("alg lower case")
            << compact(R"({"typ":"JWT","alg":"rs256"})", sub42) << false << "" << 0;
        QTest::newRow("header not JSON") << compact("not json", sub42) << false << "" << 1;
        // A supported header keeps its algorithm even when the payload has nothing to say.
        QTest::newRow("empty payload") << compact(rs256, "{}") << false << "RS256" << 0;
        QTest::newRow("payload is an array") << compact(rs256, "[1]") << false << "RS256" << 0;
        QTest::newRow("payload not JSON") << compact(rs256, "not json") << false << "RS256" << 1;
        for (const char *name : {"HS256", "HS384", "HS512", "PS256", "PS384", "PS512", "RS256", "RS384",
                                 "RS512", "ES256", "ES256K", "ES384", "ES512", "EdDSA"}) {
            QTest::addRow("alg %s", name)
                << compact("{\"typ\":\"JWT\",\"alg\":\"" + QByteArray(name) + "\"}", sub42) << true << name
                << 0;
        }
    }

    void parse()
    {
        QFETCH(QByteArray, compact);
        QFETCH(bool, valid);
        QFETCH(QString, alg);
        QFETCH(int, unparsableSegments);
        for (int i = 0; i < unparsableSegments; ++i) {
            QTest::ignoreMessage(QtCriticalMsg,
                                 QRegularExpression(QStringLiteral("^Failed to parse JWT token data: \\S")));
        }
        const JsonWebToken token(compact);
        QCOMPARE(token.valid, valid);
        QCOMPARE(token.alg, alg);
        QCOMPARE(token.raw, valid ? compact : QByteArray());
        QCOMPARE(token.sub, valid ? QStringLiteral("42") : QString());
    }

    void times_data()
    {
        QTest::addColumn<QByteArray>("claim");
        QTest::addColumn<qint64>("seconds"); // -1: the time stays null

        QTest::newRow("2024") << QByteArray("1709287200") << qint64(1709287200);
        QTest::newRow("largest 32-bit") << QByteArray("2147483647") << qint64(2147483647);
        QTest::newRow("one past 32 bits") << QByteArray("2147483648") << qint64(-1);
        QTest::newRow("zero") << QByteArray("0") << qint64(-1);
        QTest::newRow("negative") << QByteArray("-5") << qint64(-1);
        QTest::newRow("fraction") << QByteArray("1709287200.5") << qint64(-1);
        QTest::newRow("string") << QByteArray("\"1709287200\"") << qint64(-1);
    }

    void times()
    {
        QFETCH(QByteArray, claim);
        QFETCH(qint64, seconds);
        const JsonWebToken token(compact(rs256, "{\"iat\":" + claim + ",\"exp\":" + claim + '}'));
        QVERIFY(token.valid);
        for (const QDateTime &time : {token.iat, token.exp}) {
            QCOMPARE(time.isNull(), seconds < 0);
            if (seconds >= 0) {
                QCOMPARE(time.toSecsSinceEpoch(), seconds);
                QCOMPARE(time.timeSpec(), Qt::LocalTime);
            }
        }
    }

    void audience_data()
    {
        QTest::addColumn<QByteArray>("claim");
        QTest::addColumn<QStringList>("aud");

        QTest::newRow("string") << QByteArray("\"x\"") << QStringList{QStringLiteral("x")};
        QTest::newRow("empty string") << QByteArray("\"\"") << QStringList{QString()};
        QTest::newRow("array") << QByteArray(R"(["a","b"])")
                               << QStringList{QStringLiteral("a"), QStringLiteral("b")};
        QTest::newRow("array with a number")
            << QByteArray(R"([1,"b"])") << QStringList{QString(), QStringLiteral("b")};
        QTest::newRow("number") << QByteArray("5") << QStringList();
    }

    void audience()
    {
        QFETCH(QByteArray, claim);
        QFETCH(QStringList, aud);
        const JsonWebToken token(compact(rs256, "{\"aud\":" + claim + '}'));
        QVERIFY(token.valid);
        QCOMPARE(token.aud, aud);
    }

    void debugPrint_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QString>("text");

        QTest::newRow("all claims")
            << QByteArray(
                   R"({"iss":"account","iat":1709287200,"sub":"42","aud":["db","files"],"exp":1709290800})")
            << QStringLiteral(
                   "[ alg: RS256, iss: account, iat: 2024-03-01T10:00:00, sub: 42, aud: {db, files},"
                   " exp: 2024-03-01T11:00:00 ]");
        QTest::newRow("no registered claims")
            << QByteArray(R"({"scope":"read"})") << QStringLiteral("[ alg: RS256 ]");
        QTest::newRow("expiry only") << QByteArray(R"({"exp":1709290800})")
                                     << QStringLiteral("[ alg: RS256, exp: 2024-03-01T11:00:00 ]");
    }

    void debugPrint()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QString, text);
        QString printed;
        // What follows the token is printed in the stream's own quoting and spacing again.
        QDebug(&printed) << JsonWebToken(compact(rs256, payload)) << QStringLiteral("next");
        QCOMPARE(printed.trimmed(), text + QStringLiteral(" \"next\""));
    }
};

QTEST_GUILESS_MAIN(TestAccessToken)
#include "tst_accesstoken.moc"
