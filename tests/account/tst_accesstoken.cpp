#include "jsonwebtoken_p.h"

#include <VantroAccount/accesstoken.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

using vn::account::AccessToken;
using vn::account::JsonWebToken;

namespace {

QByteArray segment(const QJsonObject &object, QByteArray::Base64Options alphabet = QByteArray::Base64Encoding)
{
    return QJsonDocument(object)
        .toJson(QJsonDocument::Compact)
        .toBase64(alphabet | QByteArray::OmitTrailingEquals);
}

QByteArray compact(const QJsonObject &header, const QJsonObject &payload)
{
    return segment(header) + '.' + segment(payload) + ".c2lnbmF0dXJl";
}

QJsonObject header(const QString &algorithm = QStringLiteral("RS256"))
{
    return QJsonObject{{QStringLiteral("typ"), QStringLiteral("JWT")}, {QStringLiteral("alg"), algorithm}};
}

const QJsonObject somePayload{{QStringLiteral("sub"), QStringLiteral("42")}};

void expectUnparsableSegment()
{
    QTest::ignoreMessage(QtCriticalMsg,
                         QRegularExpression(QStringLiteral("^Failed to parse JWT token data: \\S")));
}

QString printed(const JsonWebToken &token)
{
    QString text;
    QDebug(&text) << token;
    return text.trimmed();
}

} // namespace

class TestAccessToken : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void construction_data()
    {
        QTest::addColumn<AccessToken>("token");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QByteArray>("bytes");

        QTest::newRow("default") << AccessToken() << false << QByteArray();
        QTest::newRow("empty text") << AccessToken(QString()) << false << QByteArray();
        QTest::newRow("one space counts") << AccessToken(QStringLiteral(" ")) << true << QByteArray(" ");
        QTest::newRow("expired token is still valid")
            << AccessToken(QString::fromLatin1(compact(header(), {{QStringLiteral("exp"), 1}}))) << true
            << compact(header(), {{QStringLiteral("exp"), 1}});
        QTest::newRow("byte form is Latin-1")
            << AccessToken(QStringLiteral("caf\u00e9")) << true << QByteArray("caf\xe9");
        QTest::newRow("JSON without token") << AccessToken(QJsonObject()) << false << QByteArray();
        QTest::newRow("JSON token not a string")
            << AccessToken(QJsonObject{{QStringLiteral("token"), 5}}) << false << QByteArray();
        QTest::newRow("JSON token") << AccessToken(
                                           QJsonObject{{QStringLiteral("token"), QStringLiteral("a.b.c")}})
                                    << true << QByteArray("a.b.c");
    }

    void construction()
    {
        QFETCH(AccessToken, token);
        QFETCH(bool, valid);
        QFETCH(QByteArray, bytes);
        QCOMPARE(token.isValid(), valid);
        QCOMPARE(QByteArray(token), bytes);
    }

    void copyOutlivesOriginal()
    {
        AccessToken copy;
        {
            const AccessToken original(QStringLiteral("header.payload.signature"));
            copy = original;
            const AccessToken constructed(original);
            QCOMPARE(QByteArray(constructed), QByteArray("header.payload.signature"));
        }
        QVERIFY(copy.isValid());
        QCOMPARE(QByteArray(copy), QByteArray("header.payload.signature"));
    }

    // The compact example of RFC 7515, appendix A.1: its header and payload carry CRLF whitespace.
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
        QVERIFY(token.aud.isEmpty());
        QVERIFY(token.sub.isEmpty());
    }

    void decodesStandardAlphabetOnly_data()
    {
        QTest::addColumn<bool>("urlSafe");
        QTest::addColumn<bool>("valid");
        QTest::newRow("standard") << false << true;
        QTest::newRow("URL-safe") << true << false;
    }

    void decodesStandardAlphabetOnly()
    {
        QFETCH(bool, urlSafe);
        QFETCH(bool, valid);
        // "???" encodes to "Pz8/" in the standard alphabet and "Pz8_" in the URL-safe one.
        QJsonObject tokenHeader = header();
        tokenHeader.insert(QStringLiteral("kid"), QStringLiteral("???key???"));
        const QByteArray headerSegment =
            segment(tokenHeader, urlSafe ? QByteArray::Base64UrlEncoding : QByteArray::Base64Encoding);
        QVERIFY(headerSegment.contains(urlSafe ? '_' : '/'));
        if (!valid) {
            expectUnparsableSegment();
        }
        const JsonWebToken token(headerSegment + '.' + segment(somePayload) + ".c2ln");
        QCOMPARE(token.valid, valid);
        QCOMPARE(token.alg, valid ? QStringLiteral("RS256") : QString());
    }

    void rejectsMalformedTokens_data()
    {
        QTest::addColumn<QByteArray>("compact");
        QTest::addColumn<QString>("alg");
        QTest::addColumn<int>("unparsableSegments");

        const QByteArray good = compact(header(), somePayload);
        QTest::newRow("two pieces") << good.left(good.lastIndexOf('.')) << QString() << 0;
        QTest::newRow("four pieces") << good + ".extra" << QString() << 0;
        QTest::newRow("empty") << QByteArray() << QString() << 0;
        QTest::newRow("typ lower case") << compact({{QStringLiteral("typ"), QStringLiteral("jwt")},
                                                    {QStringLiteral("alg"), QStringLiteral("RS256")}},
                                                   somePayload)
                                        << QString() << 0;
        QTest::newRow("typ missing") << compact({{QStringLiteral("alg"), QStringLiteral("RS256")}},
                                                somePayload)
                                     << QString() << 0;
        QTest::newRow("alg none") << compact(header(QStringLiteral("none")), somePayload) << QString() << 0;
        QTest::newRow("alg lower case")
            << compact(header(QStringLiteral("rs256")), somePayload) << QString() << 0;
        QTest::newRow("alg missing") << compact({{QStringLiteral("typ"), QStringLiteral("JWT")}}, somePayload)
                                     << QString() << 0;
        // A supported header with nothing to say still names its algorithm, but is not valid.
        QTest::newRow("empty payload") << compact(header(), QJsonObject()) << QStringLiteral("RS256") << 0;
        QTest::newRow("payload is an array")
            << segment(header()) + '.' + QByteArray("[1]").toBase64() + ".c2ln" << QStringLiteral("RS256")
            << 0;
        QTest::newRow("payload not JSON")
            << segment(header()) + ".bm90IGpzb24.c2ln" << QStringLiteral("RS256") << 1;
        QTest::newRow("payload URL-safe")
            << segment(header()) + '.' +
                   segment({{QStringLiteral("sub"), QStringLiteral("\?\?\?>>>")}},
                           QByteArray::Base64UrlEncoding) +
                   ".c2ln"
            << QStringLiteral("RS256") << 1;
        QTest::newRow("header not JSON") << "bm90IGpzb24." + segment(somePayload) + ".c2ln" << QString() << 1;
    }

    void rejectsMalformedTokens()
    {
        QFETCH(QByteArray, compact);
        QFETCH(QString, alg);
        QFETCH(int, unparsableSegments);
        for (int i = 0; i < unparsableSegments; ++i) {
            expectUnparsableSegment();
        }
        const JsonWebToken token(compact);
        QVERIFY(!token.valid);
        QVERIFY(token.raw.isEmpty());
        QCOMPARE(token.alg, alg);
        QVERIFY(token.iss.isEmpty());
        QVERIFY(token.exp.isNull());
    }

    void acceptsEverySupportedAlgorithm_data()
    {
        QTest::addColumn<QString>("alg");
        const char *names[] = {"HS256", "HS384", "HS512", "PS256",  "PS384", "PS512", "RS256",
                               "RS384", "RS512", "ES256", "ES256K", "ES384", "ES512", "EdDSA"};
        for (const char *name : names) {
            QTest::newRow(name) << QString::fromLatin1(name);
        }
    }

    void acceptsEverySupportedAlgorithm()
    {
        QFETCH(QString, alg);
        const QByteArray text = compact(header(alg), somePayload);
        const JsonWebToken token(text);
        QVERIFY(token.valid);
        QCOMPARE(token.alg, alg);
        QCOMPARE(token.raw, text);
        QCOMPARE(token.sub, QStringLiteral("42"));
    }

    void readsTimes_data()
    {
        QTest::addColumn<QJsonValue>("claim");
        QTest::addColumn<qint64>("seconds"); // -1: the time stays null

        QTest::newRow("one hour in 2024") << QJsonValue(1709287200) << qint64(1709287200);
        QTest::newRow("largest 32-bit") << QJsonValue(2147483647.0) << qint64(2147483647);
        QTest::newRow("one past 32 bits") << QJsonValue(2147483648.0) << qint64(-1);
        QTest::newRow("zero") << QJsonValue(0) << qint64(-1);
        QTest::newRow("negative") << QJsonValue(-5) << qint64(-1);
        QTest::newRow("fraction") << QJsonValue(1709287200.5) << qint64(-1);
        QTest::newRow("string") << QJsonValue(QStringLiteral("1709287200")) << qint64(-1);
        QTest::newRow("missing") << QJsonValue(QJsonValue::Undefined) << qint64(-1);
    }

    void readsTimes()
    {
        QFETCH(QJsonValue, claim);
        QFETCH(qint64, seconds);
        QJsonObject payload = somePayload;
        if (!claim.isUndefined()) {
            payload.insert(QStringLiteral("iat"), claim);
            payload.insert(QStringLiteral("exp"), claim);
        }
        const JsonWebToken token(compact(header(), payload));
        QVERIFY(token.valid);
        for (const QDateTime &time : {token.iat, token.exp}) {
            if (seconds < 0) {
                QVERIFY(time.isNull());
            } else {
                QCOMPARE(time.toSecsSinceEpoch(), seconds);
                QCOMPARE(time.timeSpec(), Qt::LocalTime);
            }
        }
    }

    void readsAudience_data()
    {
        QTest::addColumn<QJsonValue>("claim");
        QTest::addColumn<QStringList>("aud");

        QTest::newRow("string") << QJsonValue(QStringLiteral("x")) << QStringList{QStringLiteral("x")};
        QTest::newRow("empty string") << QJsonValue(QString()) << QStringList{QString()};
        QTest::newRow("array") << QJsonValue(QJsonArray{QStringLiteral("a"), QStringLiteral("b")})
                               << QStringList{QStringLiteral("a"), QStringLiteral("b")};
        QTest::newRow("array with a number")
            << QJsonValue(QJsonArray{1, QStringLiteral("b")}) << QStringList{QString(), QStringLiteral("b")};
        QTest::newRow("number") << QJsonValue(5) << QStringList();
        QTest::newRow("object") << QJsonValue(QJsonObject{{QStringLiteral("a"), 1}}) << QStringList();
    }

    void readsAudience()
    {
        QFETCH(QJsonValue, claim);
        QFETCH(QStringList, aud);
        QJsonObject payload = somePayload;
        payload.insert(QStringLiteral("aud"), claim);
        const JsonWebToken token(compact(header(), payload));
        QVERIFY(token.valid);
        QCOMPARE(token.aud, aud);
    }

    void debugPrint_data()
    {
        QTest::addColumn<QJsonObject>("payload");
        QTest::addColumn<QString>("text");

        QTest::newRow("all claims")
            << QJsonObject{{QStringLiteral("iss"), QStringLiteral("account")},
                           {QStringLiteral("iat"), 1709287200},
                           {QStringLiteral("sub"), QStringLiteral("42")},
                           {QStringLiteral("aud"), QJsonArray{QStringLiteral("db"), QStringLiteral("files")}},
                           {QStringLiteral("exp"), 1709290800}}
            << QStringLiteral("[ alg: RS256, iss: account, iat: 2024-03-01T10:00:00, sub: 42,"
                              " aud: {db, files}, exp: 2024-03-01T11:00:00 ]");
        QTest::newRow("no registered claims")
            << QJsonObject{{QStringLiteral("scope"), QStringLiteral("read")}}
            << QStringLiteral("[ alg: RS256 ]");
        QTest::newRow("expiry only") << QJsonObject{{QStringLiteral("exp"), 1709290800}}
                                     << QStringLiteral("[ alg: RS256, exp: 2024-03-01T11:00:00 ]");
    }

    void debugPrint()
    {
        QFETCH(QJsonObject, payload);
        QFETCH(QString, text);
        QCOMPARE(printed(JsonWebToken(compact(header(), payload))), text);
    }

    void debugPrintRestoresStream()
    {
        QString text;
        QDebug(&text) << JsonWebToken(compact(header(), somePayload)) << QStringLiteral("after");
        QCOMPARE(text.trimmed(), QStringLiteral("[ alg: RS256, sub: 42 ] \"after\""));
    }
};

QTEST_GUILESS_MAIN(TestAccessToken)
#include "tst_accesstoken.moc"
