// Runs against a build of the configuration code whose trust data came from substituted cache
// values (a stand-in vendor pair made at build time), not from the development defaults.
#include <VantroAccount/accountconfiguration.h>
#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>

#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

using vn::account::AccountConfiguration;

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestVendorTrust : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        qunsetenv("VANTRO_ACCOUNT_CONFIG");
        AccountConfiguration::s_initialized = false;
    }

    void builtInDataIsTheSubstitutedPair()
    {
        QCOMPARE(AccountConfiguration::serviceUrl(), QUrl(QStringLiteral(VENDOR_SERVICE_URL "/")));
        QCOMPARE(AccountConfiguration::rootIdentity().value(QStringLiteral("uuid")).toString(),
                 QStringLiteral("vendor-root"));
        const QByteArray config = readFile(QStringLiteral(VENDOR_TRUST_DIR "/vendor-default.json"));
        QVERIFY(!config.isEmpty());
        QCOMPARE(readFile(QStringLiteral(":/account/config/default.json")), config);
        QCOMPARE(readFile(QStringLiteral(":/account/keys/accountconfig.pub")),
                 readFile(QStringLiteral(VENDOR_TRUST_DIR "/vendor-config.pub")));
    }

    void vendorKeyVerifiesConfigurationFiles()
    {
        const vn::crypto::PrivateKey key(readFile(QStringLiteral(VENDOR_TRUST_DIR "/vendor-config.pem")));
        QVERIFY(key.isValid());
        const QJsonObject object{{QStringLiteral("serviceUrl"), QStringLiteral("https://elsewhere.example")}};
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("account.json"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QJsonDocument(vn::crypto::JsonSignature::sign(object, key)).toJson());
        file.close();
        qputenv("VANTRO_ACCOUNT_CONFIG", path.toLocal8Bit());
        QCOMPARE(AccountConfiguration::serviceUrl(), QUrl(QStringLiteral("https://elsewhere.example/")));
    }
};

QTEST_GUILESS_MAIN(TestVendorTrust)
#include "tst_vendortrust.moc"
