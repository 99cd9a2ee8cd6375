#include "opensslpeer.h"

#include <VantroCrypto/jsoncanonical.h>
#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

using vn::crypto::AbstractKey;
using vn::crypto::JsonCanonical;
using vn::crypto::JsonSignature;
using vn::crypto::PrivateKey;
using vn::crypto::PublicKey;

Q_DECLARE_METATYPE(vn::crypto::PublicKey)

namespace {

// Member order, white space and escapes that the canonical form must all even out.
const char RecordJson[] =
    "{\n"
    "  \"uuid\": \"6f1c2a9e-3b4d-4e5f-8a7b-9c0d1e2f3a4b\",\n"
    "  \"name\": \"Zo\\u00eb \\u20ac \\ud83d\\ude02 \\\"quoted\\\"\\n\",\n"
    "  \"issued\": 1700000000,\n"
    "  \"ratio\": 0.1,\n"
    "  \"large\": 1e21,\n"
    "  \"roles\": [\"admin\", \"user\"],\n"
    "  \"limits\": {\"storage\": 1.5e10, \"seats\": 25, \"trial\": false, \"parent\": null},\n"
    "  \"signature\": \"stale\"\n"
    "}";

QJsonObject record()
{
    return QJsonDocument::fromJson(RecordJson).object();
}

} // namespace

class TestJsonSignature : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void signedBytesAreCanonicalWithoutSignature();
    void peerSignatureVerifies();
    void ourSignatureVerifiesWithPeer();
    void rejected_data();
    void rejected();
    void signingFailures();

private:
    QString path(const QString &name) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
    PrivateKey m_ours;
    PublicKey m_peer; // its private half is in peer.pem
};

void TestJsonSignature::initTestCase()
{
    QVERIFY2(OpenSslPeer::isAvailable(), "the openssl command-line tool is needed as the peer");
    QVERIFY(m_dir.isValid());
    m_ours = PrivateKey(AbstractKey::RSA, 2048);
    QVERIFY(m_ours.isValid());
    QVERIFY(writeFile(path("ours.pub"), m_ours.publicKey().toPEM()));

    bool ok = false;
    OpenSslPeer::run(
        {"genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048", "-out", path("peer.pem")}, {},
        &ok);
    QVERIFY(ok);
    m_peer = PrivateKey(OpenSslPeer::run({"pkey", "-in", path("peer.pem")})).publicKey();
    QVERIFY(m_peer.isValid());
}

void TestJsonSignature::signedBytesAreCanonicalWithoutSignature()
{
    QJsonObject unsigned_ = record();
    unsigned_.remove(QStringLiteral("signature"));
    const QByteArray expected =
        "{\"issued\":1700000000,\"large\":1e+21,\"limits\":{\"parent\":null,\"seats\":25,"
        "\"storage\":15000000000,\"trial\":false},"
        "\"name\":\"Zo\xc3\xab \xe2\x82\xac \xf0\x9f\x98\x82 \\\"quoted\\\"\\n\",\"ratio\":0.1,"
        "\"roles\":[\"admin\",\"user\"],\"uuid\":\"6f1c2a9e-3b4d-4e5f-8a7b-9c0d1e2f3a4b\"}";
    QCOMPARE(JsonCanonical::serialize(unsigned_), expected);
    QCOMPARE(JsonSignature::signedBytes(record()), expected);
}

void TestJsonSignature::peerSignatureVerifies()
{
    QVERIFY(writeFile(path("signed.bin"), JsonSignature::signedBytes(record())));
    bool ok = false;
    const QByteArray signature =
        OpenSslPeer::run(QStringList{"dgst"} + OpenSslPeer::pssOptions() +
                             QStringList{"-sign", path("peer.pem"), path("signed.bin")},
                         {}, &ok);
    QVERIFY(ok);

    QJsonObject object = record();
    object.insert(QStringLiteral("signature"), QString::fromLatin1(signature.toBase64()));
    QVERIFY(JsonSignature::verify(object, m_peer));
    QVERIFY(!JsonSignature::verify(object, m_ours.publicKey()));
}

void TestJsonSignature::ourSignatureVerifiesWithPeer()
{
    const QJsonObject object = JsonSignature::sign(record(), m_ours);
    QCOMPARE(object.size(), record().size()); // the stale signature was replaced
    QVERIFY(JsonSignature::verify(object, m_ours.publicKey()));

    const QByteArray signature =
        QByteArray::fromBase64(object.value(QStringLiteral("signature")).toString().toLatin1());
    QCOMPARE(signature.size(), 256);
    QVERIFY(writeFile(path("ours.sig"), signature));
    QVERIFY(writeFile(path("signed.bin"), JsonSignature::signedBytes(object)));
    bool ok = false;
    const QByteArray answer = OpenSslPeer::run(
        QStringList{"dgst"} + OpenSslPeer::pssOptions() +
            QStringList{"-verify", path("ours.pub"), "-signature", path("ours.sig"), path("signed.bin")},
        {}, &ok);
    QVERIFY(ok);
    QCOMPARE(answer.trimmed(), QByteArray("Verified OK"));
}

void TestJsonSignature::rejected_data()
{
    QTest::addColumn<QJsonObject>("object");
    QTest::addColumn<PublicKey>("key");

    const QJsonObject good = JsonSignature::sign(record(), m_ours);
    const PublicKey key = m_ours.publicKey();
    QVERIFY(JsonSignature::verify(good, key));
    const QString signature = good.value(QStringLiteral("signature")).toString();

    const auto changed = [&good](const QString &member, const QJsonValue &value) {
        QJsonObject object = good;
        if (value.isUndefined())
            object.remove(member);
        else
            object.insert(member, value);
        return object;
    };
    QJsonObject nested = good;
    QJsonObject limits = nested.value(QStringLiteral("limits")).toObject();
    limits.insert(QStringLiteral("seats"), 26);
    nested.insert(QStringLiteral("limits"), limits);

    QTest::newRow("tampered member") << changed(QStringLiteral("ratio"), 0.2) << key;
    QTest::newRow("tampered nested member") << nested << key;
    QTest::newRow("removed member") << changed(QStringLiteral("roles"), QJsonValue::Undefined) << key;
    QTest::newRow("added member") << changed(QStringLiteral("extra"), true) << key;
    QTest::newRow("wrong key") << good << m_peer;
    QTest::newRow("invalid key") << good << PublicKey();
    QTest::newRow("missing signature") << changed(QStringLiteral("signature"), QJsonValue::Undefined) << key;
    QTest::newRow("empty signature") << changed(QStringLiteral("signature"), QString()) << key;
    QTest::newRow("signature not a string") << changed(QStringLiteral("signature"), 42) << key;
    QTest::newRow("garbage signature")
        << changed(QStringLiteral("signature"), QStringLiteral("not base64!")) << key;
    QTest::newRow("truncated signature") << changed(QStringLiteral("signature"), signature.left(40)) << key;
    QTest::newRow("signature of other bytes")
        << changed(QStringLiteral("signature"), QString::fromLatin1(m_ours.sign("other").toBase64())) << key;
}

void TestJsonSignature::rejected()
{
    QFETCH(QJsonObject, object);
    QFETCH(PublicKey, key);
    QVERIFY(!JsonSignature::verify(object, key));
}

void TestJsonSignature::signingFailures()
{
    QVERIFY(JsonSignature::sign(record(), PrivateKey()).isEmpty());
    QJsonObject notCanonical = record();
    notCanonical.insert(QStringLiteral("nan"), std::numeric_limits<double>::quiet_NaN());
    QVERIFY(JsonSignature::signature(notCanonical, m_ours).isEmpty());
}

QTEST_GUILESS_MAIN(TestJsonSignature)
#include "tst_jsonsignature.moc"
