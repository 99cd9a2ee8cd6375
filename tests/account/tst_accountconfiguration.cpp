#include "trustfixture.h"

#include <VantroAccount/accountconfiguration.h>
#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/publickey.h>

#include <QJsonDocument>
#include <QProcess>
#include <QResource>
#include <QTemporaryDir>
#include <QtTest>

using vn::account::AccountConfiguration;
using vn::crypto::PrivateKey;
using vn::crypto::PublicKey;

class TestAccountConfiguration : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    PrivateKey m_configKey;
    PrivateKey m_otherKey;

    QString configPath() const { return m_folder.filePath(QStringLiteral("account.json")); }

    // A signed configuration of exactly @p size bytes: the signature's length is fixed by the key,
    // so a padding member brings the document to the size.
    QByteArray configurationOfSize(int size) const
    {
        QJsonObject object =
            trustfixture::configuration(QStringLiteral("https://sized.example"), m_otherKey.publicKey());
        object.insert(QStringLiteral("padding"), QString());
        const int base = trustfixture::signedDocument(object, m_configKey).size();
        object.insert(QStringLiteral("padding"), QString(size - base, QLatin1Char('x')));
        return trustfixture::signedDocument(object, m_configKey);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        m_configKey = trustfixture::developmentConfigKey();
        QVERIFY(m_configKey.isValid());
        m_otherKey = PrivateKey(vn::crypto::AbstractKey::RSA, 2048);
        QVERIFY(m_otherKey.isValid());
    }

    void cleanup()
    {
        qunsetenv("VANTRO_ACCOUNT_CONFIG");
        qunsetenv("VANTRO_CACHE_ACCOUNT_CONFIG");
        AccountConfiguration::s_initialized = false;
    }

    void builtInConfiguration_data()
    {
        QTest::addColumn<bool>("setEmpty");
        QTest::newRow("no environment") << false;
        QTest::newRow("empty VANTRO_ACCOUNT_CONFIG") << true;
    }

    void builtInConfiguration()
    {
        QFETCH(bool, setEmpty);
        if (setEmpty) {
            qputenv("VANTRO_ACCOUNT_CONFIG", QByteArray());
        }
        QCOMPARE(AccountConfiguration::serviceUrl(), QUrl(QStringLiteral("http://127.0.0.1:8421/")));
        QVERIFY(AccountConfiguration::s_initialized);
        const QJsonObject root = AccountConfiguration::rootIdentity();
        QCOMPARE(root.value(QStringLiteral("uuid")).toString(), QStringLiteral("root"));
        const PublicKey rootKey(root.value(QStringLiteral("publicKey")).toString().toLatin1());
        QCOMPARE(rootKey.bits(), 4096);
    }

    void builtInResourcesAreUncompressed()
    {
        // The library makes sure its resources are registered when it loads a configuration.
        AccountConfiguration::serviceUrl();
        for (const char *path : {":/account/config/default.json", ":/account/keys/accountconfig.pub"}) {
            const QResource resource(QString::fromLatin1(path));
            QVERIFY2(resource.isValid(), path);
            QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);
        }
        QCOMPARE(PublicKey(QStringLiteral(":/account/keys/accountconfig.pub")), m_configKey.publicKey());
    }

    void serviceUrlEndsInOneSlash_data()
    {
        QTest::addColumn<QJsonValue>("serviceUrl");
        QTest::addColumn<QUrl>("expected");
        QTest::newRow("without slash") << QJsonValue(QStringLiteral("https://accounts.example/api"))
                                       << QUrl(QStringLiteral("https://accounts.example/api/"));
        QTest::newRow("with slash") << QJsonValue(QStringLiteral("https://accounts.example/api/"))
                                    << QUrl(QStringLiteral("https://accounts.example/api/"));
        QTest::newRow("missing") << QJsonValue(QJsonValue::Undefined) << QUrl(QStringLiteral("/"));
    }

    void serviceUrlEndsInOneSlash()
    {
        QFETCH(QJsonValue, serviceUrl);
        QFETCH(QUrl, expected);
        QJsonObject object = trustfixture::configuration(QString(), m_otherKey.publicKey());
        object.remove(QStringLiteral("serviceUrl"));
        if (!serviceUrl.isUndefined()) {
            object.insert(QStringLiteral("serviceUrl"), serviceUrl);
        }
        QVERIFY(trustfixture::writeFile(configPath(), trustfixture::signedDocument(object, m_configKey)));
        qputenv("VANTRO_ACCOUNT_CONFIG", configPath().toLocal8Bit());
        QCOMPARE(AccountConfiguration::serviceUrl(), expected);
        QCOMPARE(AccountConfiguration::rootIdentity(),
                 object.value(QStringLiteral("rootIdentity")).toObject());
    }

    void missingRootIdentityIsEmpty()
    {
        const QJsonObject object{{QStringLiteral("serviceUrl"), QStringLiteral("https://a.example")}};
        QVERIFY(trustfixture::writeFile(configPath(), trustfixture::signedDocument(object, m_configKey)));
        qputenv("VANTRO_ACCOUNT_CONFIG", configPath().toLocal8Bit());
        QVERIFY(AccountConfiguration::rootIdentity().isEmpty());
    }

    void largestConfigurationLoads()
    {
        const QByteArray content = configurationOfSize(4096);
        QCOMPARE(content.size(), 4096);
        QVERIFY(trustfixture::writeFile(configPath(), content));
        qputenv("VANTRO_ACCOUNT_CONFIG", configPath().toLocal8Bit());
        QCOMPARE(AccountConfiguration::serviceUrl(), QUrl(QStringLiteral("https://sized.example/")));
    }

    void cacheSetting_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("rereads");
        QTest::newRow("unset") << QByteArray() << false;
        QTest::newRow("0") << QByteArrayLiteral("0") << true;
        QTest::newRow("1") << QByteArrayLiteral("1") << false;
        QTest::newRow("abc") << QByteArrayLiteral("abc") << false;
    }

    void cacheSetting()
    {
        QFETCH(QByteArray, value);
        QFETCH(bool, rereads);
        if (!value.isNull()) {
            qputenv("VANTRO_CACHE_ACCOUNT_CONFIG", value);
        }
        qputenv("VANTRO_ACCOUNT_CONFIG", configPath().toLocal8Bit());
        const auto write = [this](const char *url) {
            const QJsonObject object =
                trustfixture::configuration(QString::fromLatin1(url), m_otherKey.publicKey());
            return trustfixture::writeFile(configPath(), trustfixture::signedDocument(object, m_configKey));
        };

        QVERIFY(write("https://first.example"));
        QCOMPARE(AccountConfiguration::serviceUrl(), QUrl(QStringLiteral("https://first.example/")));
        QCOMPARE(AccountConfiguration::s_initialized, !rereads);
        QVERIFY(write("https://second.example"));
        const QUrl expected(rereads ? QStringLiteral("https://second.example/")
                                    : QStringLiteral("https://first.example/"));
        QCOMPARE(AccountConfiguration::serviceUrl(), expected);
    }

    // The fatal paths end the process, so each runs in a probe process of its own.
    void fatal_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("content"); // null: no file at all
        QTest::addColumn<QString>("message");    // empty: the probe must succeed

        const QString missing = m_folder.filePath(QStringLiteral("absent/account.json"));
        const QJsonObject valid =
            trustfixture::configuration(QStringLiteral("https://probe.example"), m_otherKey.publicKey());

        QTest::newRow("valid configuration")
            << "config" << trustfixture::signedDocument(valid, m_configKey) << QString();
        QTest::newRow("missing file")
            << "config" << QByteArray()
            << QStringLiteral("Account configuration \"%1\" does not exist").arg(missing);

        const QByteArray broken("{\"serviceUrl\": ");
        QJsonParseError brokenError;
        QJsonDocument::fromJson(broken, &brokenError);
        QTest::newRow("invalid JSON")
            << "config" << broken
            << QStringLiteral("Invalid account configuration: ") + brokenError.errorString();

        const QByteArray oversized = configurationOfSize(4097);
        QJsonParseError cutError;
        QJsonDocument::fromJson(oversized.left(4096), &cutError);
        QTest::newRow("4097 bytes") << "config" << oversized
                                    << QStringLiteral("Invalid account configuration: ") +
                                           cutError.errorString();

        // Signed by the key of its own root identity, which verifies it, but not by the built-in key.
        QTest::newRow("signed by its own root key")
            << "config" << trustfixture::signedDocument(valid, m_otherKey)
            << QStringLiteral("Invalid account configuration - aborting");
        QTest::newRow("unsigned") << "config" << QJsonDocument(valid).toJson()
                                  << QStringLiteral("Invalid account configuration - aborting");
        QTest::newRow("top level not an object")
            << "config" << QByteArrayLiteral("[]")
            << QStringLiteral("Invalid account configuration - aborting");

        QJsonObject badRoot = valid;
        QJsonObject record = badRoot.value(QStringLiteral("rootIdentity")).toObject();
        record.insert(QStringLiteral("publicKey"), QStringLiteral("-----BEGIN PUBLIC KEY-----\nAAAA\n"));
        badRoot.insert(QStringLiteral("rootIdentity"), record);
        QTest::newRow("root identity key unreadable")
            << "root" << trustfixture::signedDocument(badRoot, m_configKey)
            << QStringLiteral("Root identity has invalid public key!");
    }

    void fatal()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, content);
        QFETCH(QString, message);

        QString path = m_folder.filePath(QStringLiteral("absent/account.json"));
        if (!content.isNull()) {
            path = configPath();
            QVERIFY(trustfixture::writeFile(path, content));
            // Own-key row: the document really does verify against its own root key.
            if (QTest::currentDataTag() == QLatin1String("signed by its own root key")) {
                QVERIFY(vn::crypto::JsonSignature::verify(QJsonDocument::fromJson(content).object(),
                                                          m_otherKey.publicKey()));
            }
        }

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VANTRO_ACCOUNT_CONFIG"), path);
        environment.insert(QStringLiteral("QT_MESSAGE_PATTERN"), QStringLiteral("%{type}: %{message}"));
        QProcess probe;
        probe.setProcessEnvironment(environment);
        probe.start(QStringLiteral(CONFIGURATION_PROBE), {mode});
        QVERIFY(probe.waitForFinished(30000));
        const QString output = QString::fromLocal8Bit(probe.readAllStandardOutput());
        const QStringList errors =
            QString::fromLocal8Bit(probe.readAllStandardError()).split(QLatin1Char('\n'));

        if (message.isEmpty()) {
            QCOMPARE(probe.exitStatus(), QProcess::NormalExit);
            QCOMPARE(probe.exitCode(), 0);
            QCOMPARE(output.trimmed(), QStringLiteral("https://probe.example/"));
            return;
        }
        QVERIFY2(probe.exitStatus() == QProcess::CrashExit || probe.exitCode() != 0, qPrintable(output));
        QVERIFY2(errors.contains(QStringLiteral("fatal: ") + message),
                 qPrintable(errors.join(QLatin1Char('\n'))));
        QVERIFY(output.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestAccountConfiguration)
#include "tst_accountconfiguration.moc"
