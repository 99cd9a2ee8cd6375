// Access tokens as the library holds them, and the compact tokens it decodes for their claims.

#include "jsonwebtoken_p.h"
#include "testjson.h"

#include <VantroAccount/accesstoken.h>

#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

using vn::account::AccessToken;
using vn::account::JsonWebToken;

namespace {

QByteArray encode(const char *json, QByteArray::Base64Options alphabet = QByteArray::Base64Encoding)
{
    return vn::test::json(json).toBase64(alphabet | QByteArray::OmitTrailingEquals);
}

QByteArray jwt(const char *payload, const char *header = "{'typ':'JWT','alg':'RS256'}")
{
    return encode(header) + '.' + encode(payload) + ".c2ln";
}

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
};

QTEST_GUILESS_MAIN(TestAccessToken)
#include "tst_accesstoken.moc"
