#include "accountinstance.h"
#include "trustfixture.h"

#include <VantroAccount/accountidentity.h>
#include <VantroAccount/database.h>
#include <VantroAccount/resource.h>
#include <VantroCrypto/jsonsignature.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

using vn::account::AccountIdentity;
using vn::account::AccountInstance;
using vn::account::Database;
using vn::account::Resource;
using vn::crypto::JsonSignature;
using vn::crypto::PrivateKey;

namespace {

QStringList s_resourceMessages;
QtMessageHandler s_previousHandler = nullptr;

// Keeps the resource category's messages in order and hands every message on to QtTest, so that
// QTest::ignoreMessage still applies.
void recordMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (qstrcmp(context.category, "vantro.account.resource") == 0) {
        s_resourceMessages.append(message);
    }
    s_previousHandler(type, context, message);
}

} // namespace

class TestResource : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    QHash<QString, PrivateKey> m_keys; // "root", "middle", "leaf", "stranger"
    QJsonArray m_chain;                // "middle" signed by the root, "leaf" signed by "middle"

    QJsonObject identityRecord(const QString &id, const QString &signer) const
    {
        QJsonObject record{
            {QStringLiteral("id"), id},
            {QStringLiteral("name"), id.toUpper()},
            {QStringLiteral("publicKey"), QString::fromLatin1(m_keys[id].publicKey().toPEM())}};
        if (signer != QLatin1String("root")) {
            record.insert(QStringLiteral("parent"), signer);
        }
        return JsonSignature::sign(record, m_keys[signer]);
    }

    // An envelope as the service writes it; a null issuer leaves "issuer" out.
    static QJsonObject envelope(const QString &id, const QString &type, const QString &owner,
                                const QString &issuer)
    {
        QJsonObject record{{QStringLiteral("id"), id},
                           {QStringLiteral("type"), type},
                           {QStringLiteral("owner"), owner},
                           {QStringLiteral("payload"),
                            QJsonObject{{QStringLiteral("note"), QStringLiteral("ünïcode payload")}}}};
        if (!issuer.isNull()) {
            record.insert(QStringLiteral("issuer"), issuer);
        }
        return record;
    }

    // Makes @p instance own a freshly built chain and use its leaf as the account's identity.
    void loadChain(AccountInstance &instance)
    {
        AccountIdentity *leaf = AccountIdentity::loadChain(m_chain, &instance);
        QVERIFY(leaf);
        QVERIFY(leaf->verifyChain());
        instance.setIdentity(leaf);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        for (const char *name : {"root", "middle", "leaf", "stranger"}) {
            const PrivateKey key(vn::crypto::AbstractKey::RSA, 2048);
            QVERIFY(key.isValid());
            m_keys.insert(QLatin1String(name), key);
        }
        const QString path = m_folder.filePath(QStringLiteral("account.json"));
        const QJsonObject configuration = trustfixture::configuration(
            QStringLiteral("https://resource.example"), m_keys[QStringLiteral("root")].publicKey());
        QVERIFY(trustfixture::writeFile(
            path, trustfixture::signedDocument(configuration, trustfixture::developmentConfigKey())));
        qputenv("VANTRO_ACCOUNT_CONFIG", path.toLocal8Bit());

        m_chain = QJsonArray{identityRecord(QStringLiteral("middle"), QStringLiteral("root")),
                             identityRecord(QStringLiteral("leaf"), QStringLiteral("middle"))};
        s_previousHandler = qInstallMessageHandler(recordMessage);
    }

    void cleanupTestCase() { qInstallMessageHandler(s_previousHandler); }

    void init() { s_resourceMessages.clear(); }

    void signature_data()
    {
        QTest::addColumn<QString>("issuer"); // null: no "issuer" member
        QTest::addColumn<QString>("signer");
        QTest::addColumn<bool>("tamper");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("message");

        const QString noIssuer = QStringLiteral("No issuer declared on resource r-1");
        const QString failed = QStringLiteral("Signature validation failed for resource r-1");
        QTest::newRow("issued by the leaf")
            << QStringLiteral("leaf") << QStringLiteral("leaf") << false << true << QString();
        QTest::newRow("issued by the middle")
            << QStringLiteral("middle") << QStringLiteral("middle") << false << true << QString();
        QTest::newRow("issued by the root")
            << QStringLiteral("root") << QStringLiteral("root") << false << true << QString();
        QTest::newRow("tampered payload")
            << QStringLiteral("leaf") << QStringLiteral("leaf") << true << false << failed;
        QTest::newRow("issuer names the leaf, root signed")
            << QStringLiteral("leaf") << QStringLiteral("root") << false << false << failed;
        QTest::newRow("signed by a stranger")
            << QStringLiteral("middle") << QStringLiteral("stranger") << false << false << failed;
        QTest::newRow("unknown issuer")
            << QStringLiteral("elsewhere") << QStringLiteral("stranger") << false << false << noIssuer;
        QTest::newRow("issuer differs in case")
            << QStringLiteral("Leaf") << QStringLiteral("leaf") << false << false << noIssuer;
        QTest::newRow("missing issuer") << QString() << QStringLiteral("leaf") << false << false << noIssuer;
    }

    void signature()
    {
        QFETCH(QString, issuer);
        QFETCH(QString, signer);
        QFETCH(bool, tamper);
        QFETCH(bool, valid);
        QFETCH(QString, message);

        AccountInstance instance;
        loadChain(instance);
        QJsonObject record =
            JsonSignature::sign(envelope(QStringLiteral("r-1"), QStringLiteral("vantro.resource.Unknown"),
                                         QStringLiteral("leaf"), issuer),
                                m_keys[signer]);
        if (tamper) {
            record.insert(QStringLiteral("payload"),
                          QJsonObject{{QStringLiteral("note"), QStringLiteral("changed")}});
        }
        if (!message.isEmpty()) {
            QTest::ignoreMessage(QtCriticalMsg, qPrintable(message));
        }
        const QPointer<Resource> resource = Resource::create(record, &instance);
        QVERIFY(resource);
        QCOMPARE(resource->parent(), &instance);
        QCOMPARE(resource->isValid(), valid);
        QCOMPARE(resource->property("valid").toBool(), valid);
        QCOMPARE(s_resourceMessages, message.isEmpty() ? QStringList() : QStringList{message});
    }

    // Without an identity chain nothing can be trusted or ranked, however well it is signed.
    void withoutChain()
    {
        AccountInstance instance;
        const QJsonObject record =
            JsonSignature::sign(envelope(QStringLiteral("r-2"), QStringLiteral("vantro.resource.Unknown"),
                                         QStringLiteral("leaf"), QStringLiteral("leaf")),
                                m_keys[QStringLiteral("leaf")]);
        QTest::ignoreMessage(QtCriticalMsg, "No issuer declared on resource r-2");
        const QPointer<Resource> resource = Resource::create(record, &instance);
        QVERIFY(resource);
        QVERIFY(!resource->isValid());
        QCOMPARE(resource->priority(), 0);
        QCOMPARE(s_resourceMessages, QStringList{QStringLiteral("No issuer declared on resource r-2")});
    }

    void priority_data()
    {
        QTest::addColumn<QString>("owner");
        QTest::addColumn<int>("priority");

        QTest::newRow("the account's own identity") << QStringLiteral("leaf") << 65535;
        QTest::newRow("its parent") << QStringLiteral("middle") << 65534;
        QTest::newRow("the root") << QStringLiteral("root") << 65533;
        QTest::newRow("outside the chain") << QStringLiteral("elsewhere") << 0;
        QTest::newRow("no owner") << QString() << 0;
    }

    void priority()
    {
        QFETCH(QString, owner);
        QFETCH(int, priority);

        AccountInstance instance;
        loadChain(instance);
        QJsonObject record = envelope(QStringLiteral("r-3"), QStringLiteral("vantro.resource.Unknown"), owner,
                                      QStringLiteral("leaf"));
        if (owner.isNull()) {
            record.remove(QStringLiteral("owner"));
        }
        const QPointer<Resource> resource =
            Resource::create(JsonSignature::sign(record, m_keys[QStringLiteral("leaf")]), &instance);
        QVERIFY(resource->isValid());
        QCOMPARE(resource->priority(), priority);
    }

    void createByType_data()
    {
        QTest::addColumn<QJsonValue>("type"); // undefined: no "type" member
        QTest::addColumn<QByteArray>("className");

        QTest::newRow("database") << QJsonValue(QStringLiteral("vantro.resource.Database"))
                                  << QByteArray("vn::account::Database");
        QTest::newRow("author credentials") << QJsonValue(QStringLiteral("vantro.resource.AuthorCredentials"))
                                            << QByteArray("vn::account::DatabaseCredentials");
        QTest::newRow("device credentials") << QJsonValue(QStringLiteral("vantro.resource.DeviceCredentials"))
                                            << QByteArray("vn::account::DatabaseCredentials");
        QTest::newRow("unknown type")
            << QJsonValue(QStringLiteral("vantro.resource.Printer")) << QByteArray("vn::account::Resource");
        QTest::newRow("type differs in case")
            << QJsonValue(QStringLiteral("vantro.resource.database")) << QByteArray("vn::account::Resource");
        QTest::newRow("type is not a string") << QJsonValue(7) << QByteArray("vn::account::Resource");
        QTest::newRow("no type") << QJsonValue(QJsonValue::Undefined) << QByteArray("vn::account::Resource");
    }

    void createByType()
    {
        QFETCH(QJsonValue, type);
        QFETCH(QByteArray, className);

        AccountInstance instance;
        loadChain(instance);
        QJsonObject record =
            envelope(QStringLiteral("r-4"), QString(), QStringLiteral("leaf"), QStringLiteral("leaf"));
        record.remove(QStringLiteral("type"));
        if (!type.isUndefined()) {
            record.insert(QStringLiteral("type"), type);
        }
        // A credential with a kind nobody supports: the class is built, nothing is registered.
        record.insert(QStringLiteral("payload"),
                      QJsonObject{{QStringLiteral("type"), QStringLiteral("none")}});
        if (className == "vn::account::DatabaseCredentials") {
            QTest::ignoreMessage(QtWarningMsg, R"(Unsupported credential type "none" in resource "r-4")");
        }
        const QPointer<Resource> resource =
            Resource::create(JsonSignature::sign(record, m_keys[QStringLiteral("leaf")]), &instance);
        QVERIFY(resource);
        QCOMPARE(QByteArray(resource->metaObject()->className()), className);
        QCOMPARE(resource->type(), type.toString());
        QVERIFY(resource->isValid());
    }

    void envelopeAccessors()
    {
        AccountInstance instance;
        loadChain(instance);
        const QJsonObject record =
            JsonSignature::sign(envelope(QStringLiteral("r-5"), QStringLiteral("vantro.resource.Printer"),
                                         QStringLiteral("middle"), QStringLiteral("leaf")),
                                m_keys[QStringLiteral("leaf")]);
        const QPointer<Resource> resource = Resource::create(record, &instance);
        QCOMPARE(resource->uuid(), QStringLiteral("r-5"));
        QCOMPARE(resource->owner(), QStringLiteral("middle"));
        QCOMPARE(resource->signature(), record.value(QLatin1String("signature")).toString().toUtf8());
        QCOMPARE(resource->signature().size(), 344); // base64 of an RSA-2048 signature
        QCOMPARE(resource->payload(), record.value(QLatin1String("payload")));
        QCOMPARE(resource->property("payload").toJsonValue(), record.value(QLatin1String("payload")));
        QCOMPARE(resource->property("uuid").toString(), QStringLiteral("r-5"));

        QTest::ignoreMessage(QtCriticalMsg, "No issuer declared on resource ");
        const QPointer<Resource> bare = Resource::create(QJsonObject(), &instance);
        QVERIFY(bare->uuid().isEmpty());
        QVERIFY(bare->owner().isEmpty());
        QVERIFY(bare->signature().isEmpty());
        QVERIFY(bare->payload().isUndefined());
        QVERIFY(!bare->isValid());
        QCOMPARE(s_resourceMessages.last(), QStringLiteral("No issuer declared on resource "));
    }

    void firstRegistrationWins()
    {
        AccountInstance instance;
        loadChain(instance);
        // The registry outlives this test: its factories must not capture anything local.
        static int rivalCalls = 0;
        Resource::registerType("vantro.resource.Database", [](const QJsonObject &, AccountInstance *) {
            ++rivalCalls;
            return nullptr;
        });
        const QJsonObject record =
            JsonSignature::sign(envelope(QStringLiteral("r-6"), QStringLiteral("vantro.resource.Database"),
                                         QStringLiteral("root"), QStringLiteral("root")),
                                m_keys[QStringLiteral("root")]);
        const QPointer<Resource> resource = Resource::create(record, &instance);
        QCOMPARE(rivalCalls, 0);
        QVERIFY(qobject_cast<Database *>(resource.data()));
        QVERIFY(resource->isValid());

        // A further instance registers the built-in types again, which changes nothing either.
        AccountInstance second;
        QVERIFY(qobject_cast<Database *>(Resource::create(record, &instance)));

        // A name nobody has registered is taken, and its factory builds what create() returns.
        static int customCalls = 0;
        Resource::registerType("test.resource.Custom", [](const QJsonObject &record, AccountInstance *owner) {
            ++customCalls;
            return new Database(record, owner);
        });
        QTest::ignoreMessage(QtCriticalMsg, "No issuer declared on resource r-7");
        const QPointer<Resource> custom = Resource::create(
            envelope(QStringLiteral("r-7"), QStringLiteral("test.resource.Custom"), QString(), QString()),
            &second);
        QCOMPARE(customCalls, 1);
        QVERIFY(qobject_cast<Database *>(custom.data()));
        QCOMPARE(custom->parent(), &second);
        QCOMPARE(rivalCalls, 0);
    }

    void database_data()
    {
        QTest::addColumn<QJsonValue>("payload");
        QTest::addColumn<QUrl>("server");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariantMap>("authoringOptions");

        const QJsonValue server(QStringLiteral("https://db.example:6984/"));
        const QJsonValue name(QStringLiteral("catalogue"));
        QTest::newRow("service payload")
            << QJsonValue(QJsonObject{
                   {QStringLiteral("server"), server},
                   {QStringLiteral("name"), name},
                   {QStringLiteral("authoringOptions"),
                    QJsonDocument::fromJson(R"({"autosave": true, "lockTimeout": 30, "tags": ["a", "b"]})")
                        .object()}})
            << QUrl(QStringLiteral("https://db.example:6984/")) << QStringLiteral("catalogue")
            << QVariantMap{{QStringLiteral("autosave"), true},
                           {QStringLiteral("lockTimeout"), 30},
                           {QStringLiteral("tags"), QVariantList{QStringLiteral("a"), QStringLiteral("b")}}};
        QTest::newRow("no authoring options")
            << QJsonValue(QJsonObject{{QStringLiteral("server"), server}, {QStringLiteral("name"), name}})
            << QUrl(QStringLiteral("https://db.example:6984/")) << QStringLiteral("catalogue")
            << QVariantMap();
        QTest::newRow("authoring options not an object")
            << QJsonValue(QJsonObject{{QStringLiteral("name"), name},
                                      {QStringLiteral("authoringOptions"), QJsonArray{QStringLiteral("x")}}})
            << QUrl() << QStringLiteral("catalogue") << QVariantMap();
        QTest::newRow("server not a URL")
            << QJsonValue(QJsonObject{{QStringLiteral("server"), QStringLiteral("https://db exa mple/")},
                                      {QStringLiteral("name"), name}})
            << QUrl() << QStringLiteral("catalogue") << QVariantMap();
        QTest::newRow("payload not an object")
            << QJsonValue(QJsonArray{1, 2}) << QUrl() << QString() << QVariantMap();
    }

    void database()
    {
        QFETCH(QJsonValue, payload);
        QFETCH(QUrl, server);
        QFETCH(QString, name);
        QFETCH(QVariantMap, authoringOptions);

        AccountInstance instance;
        loadChain(instance);
        QJsonObject record = envelope(QStringLiteral("db-1"), QStringLiteral("vantro.resource.Database"),
                                      QStringLiteral("leaf"), QStringLiteral("leaf"));
        record.insert(QStringLiteral("payload"), payload);
        const QPointer<Resource> resource =
            Resource::create(JsonSignature::sign(record, m_keys[QStringLiteral("leaf")]), &instance);
        const auto *database = qobject_cast<Database *>(resource.data());
        QVERIFY(database);
        QVERIFY(database->isValid());
        QCOMPARE(database->server().isValid(), server.isValid());
        if (server.isValid()) {
            QCOMPARE(database->server(), server);
        }
        QCOMPARE(database->name(), name);
        QCOMPARE(database->authoringOptions(), authoringOptions);
        QCOMPARE(database->property("authoringOptions").toMap(), authoringOptions);
    }
};

QTEST_GUILESS_MAIN(TestResource)
#include "tst_resource.moc"
