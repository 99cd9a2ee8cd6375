// The account configuration: the built-in one, the cache switch, and what a configuration file
// loads or why it ends the process.

#include "testio.h"
#include "trustfixture.h"

#include <VantroAccount/accountconfiguration.h>
#include <VantroAccount/rootidentity.h>

#include <QtTest>

#include <cstdio>

using vn::account::AccountConfiguration;
using vn::crypto::PrivateKey;

// A child run of this program with this variable set loads the configuration and the root identity
// and prints what it loaded, unless something on the way was fatal.
static const char ProbeVariable[] = "TST_CONFIGURATION_PROBE";

class TestAccountConfiguration : public QObject
{
    Q_OBJECT
    QTemporaryDir m_folder;
    PrivateKey m_configKey = trustfixture::developmentConfigKey();
    PrivateKey m_otherKey{vn::crypto::AbstractKey::RSA, 2048};

    QString configPath() const { return m_folder.filePath(QStringLiteral("account.json")); }

    // A configuration for @p url, signed with the built-in key unless another is given; a @p size
    // pads it to exactly that many bytes (the signature's length is fixed by the key).
    QByteArray document(const QJsonValue &url, int size = 0, const PrivateKey *key = nullptr) const
    {
        QJsonObject object = trustfixture::configuration(QString(), m_otherKey.publicKey());
        object.insert(QStringLiteral("serviceUrl"), url);
        const auto sign = [&] { return trustfixture::signedDocument(object, key ? *key : m_configKey); };
        if (size > 0) {
            object.insert(QStringLiteral("padding"), QString());
            object.insert(QStringLiteral("padding"), QString(size - sign().size(), QLatin1Char('x')));
        }
        return sign();
    }

    bool install(const QByteArray &content) const { return vn::test::writeFile(configPath(), content); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_configKey.isValid() && m_otherKey.isValid());
        qputenv(ProbeVariable, "1");
    }

    void init() { qputenv("VANTRO_ACCOUNT_CONFIG", QFile::encodeName(configPath())); }

    void cleanup()
    {
        qunsetenv("VANTRO_CACHE_ACCOUNT_CONFIG");
        AccountConfiguration::s_initialized = false;
    }

    void builtIn()
    {
        for (const bool unset : {true, false}) { // VANTRO_ACCOUNT_CONFIG unset, then set empty
            unset ? qunsetenv("VANTRO_ACCOUNT_CONFIG") : qputenv("VANTRO_ACCOUNT_CONFIG", QByteArray());
            AccountConfiguration::s_initialized = false;
            QCOMPARE(AccountConfiguration::serviceUrl(), QUrl(QStringLiteral("http://127.0.0.1:8421/")));
            QCOMPARE(AccountConfiguration::rootIdentity()[QLatin1String("uuid")].toString(),
                     QStringLiteral("root"));
        }
        // Stored as they were signed.
        for (const char *path : {":/account/config/default.json", ":/account/keys/accountconfig.pub"}) {
            QCOMPARE(QResource(QString::fromLatin1(path)).compressionAlgorithm(), QResource::NoCompression);
        }
    }

    void cache_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("host"); // after the file changed
        QTest::newRow("unset") << QByteArray() << "first.example";
        QTest::newRow("0") << QByteArray("0") << "second.example";
        QTest::newRow("1") << QByteArray("1") << "first.example";
        QTest::newRow("abc") << QByteArray("abc") << "first.example";
    }

    void cache()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, host);
        if (!value.isNull()) {
            qputenv("VANTRO_CACHE_ACCOUNT_CONFIG", value);
        }
        QVERIFY(install(document("https://first.example")));
        QCOMPARE(AccountConfiguration::serviceUrl(), QUrl(QStringLiteral("https://first.example/")));
        QVERIFY(install(document("https://second.example")));
        QCOMPARE(AccountConfiguration::serviceUrl().host(), host);
    }

    // The fatal paths end the process, so each load runs in a child of its own.
    void load_data()
    {
        QTest::addColumn<QByteArray>("content"); // null: no file at all
        QTest::addColumn<QString>("line");       // the child's line that tells its fate

        QTest::newRow("slash added") << document("https://a.example/api")
                                     << "loaded https://a.example/api/ root";
        QTest::newRow("slash kept") << document("https://a.example/api/")
                                    << "loaded https://a.example/api/ root";
        QTest::newRow("largest file")
            << document("https://a.example", 4096) << "loaded https://a.example/ root";
        QTest::newRow("no service URL") << document(QJsonValue::Undefined) << "loaded / root";
        QTest::newRow("missing file")
            << QByteArray()
            << QStringLiteral("fatal: Account configuration \"%1\" does not exist").arg(configPath());
        QTest::newRow("invalid JSON")
            << QByteArray("{\"serviceUrl\": ") << "fatal: Invalid account configuration: unterminated object";
        // Only the first 4096 bytes of a larger file are read: a cut document, as Qt words it.
        QTest::newRow("4097 bytes") << document("https://a.example", 4097)
                                    << "fatal: Invalid account configuration: unterminated string";
        // Its own root key would verify it; only the built-in key counts.
        QTest::newRow("signed by its own root key") << document("https://a.example", 0, &m_otherKey)
                                                    << "fatal: Invalid account configuration - aborting";
        const QJsonObject rootless{{"serviceUrl", "https://a.example"}};
        QTest::newRow("no root identity") << trustfixture::signedDocument(rootless, m_configKey)
                                          << "fatal: Root identity has invalid public key!";
    }

    void load()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, line);
        QVERIFY(content.isNull() ? !QFile::exists(configPath()) || QFile::remove(configPath())
                                 : install(content));
        const auto child = vn::test::runProcess(QCoreApplication::applicationFilePath(), {});
        const QString output = QString::fromLocal8Bit(child.out + child.err);
        QVERIFY2(output.split(QLatin1Char('\n')).contains(line), qPrintable(output));
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (qEnvironmentVariableIsSet(ProbeVariable)) {
        qSetMessagePattern(QStringLiteral("%{type}: %{message}"));
        const QString url = AccountConfiguration::serviceUrl().toString();
        const QString root = vn::account::RootIdentity(nullptr).uuid();
        std::printf("loaded %s %s\n", qPrintable(url), qPrintable(root));
        return 0;
    }
    TestAccountConfiguration test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_accountconfiguration.moc"
