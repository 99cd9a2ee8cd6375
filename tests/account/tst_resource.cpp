// Identity chains and resources as the service hands them out: each link checked up to the built-in
// root, each resource trusted and ranked by the chain, made by type, its credentials registered.

#include "autotest_p.h"
#include "oauth1signature_p.h"
#include "testhttpserver.h"
#include "trustfixture.h"

#include <VantroAccount/account.h>
#include <VantroAccount/accountidentity.h>
#include <VantroAccount/database.h>
#include <VantroAccount/rootidentity.h>
#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QNetworkReply>
#include <QtTest>

#include <httplib.h>

using namespace vn::account;
using vn::network::AuthorizationRegistry;

namespace {

const QJsonValue Absent(QJsonValue::Undefined); // a member given as Absent is left out

QJsonObject envelope(const QJsonValue &owner, const QJsonValue &issuer, const QJsonValue &type,
                     const QJsonValue &payload)
{
    return QJsonObject{
        {"id", "r-1"}, {"type", type}, {"owner", owner}, {"issuer", issuer}, {"payload", payload}};
}

QJsonObject credentialPayload(const QString &kind, const QJsonObject &secrets,
                              const QJsonValue &realm = "127.0.0.1")
{
    return QJsonObject{{"type", kind}, {"realm", realm}, {"credentials", secrets}};
}

} // namespace

class TestResource : public QObject
{
    Q_OBJECT
    trustfixture::Chain m_chain;
    vn::test::TestHttpServer m_server;
    int m_baseline = 0;

    // A record as the service writes it, signed with @p signer's key.
    QJsonObject issued(const QJsonValue &owner, const QJsonValue &issuer, const QString &signer,
                       const QJsonValue &type = QStringLiteral("vantro.resource.Printer"),
                       const QJsonValue &payload = QJsonObject{{"note", "ünïcode"}}) const
    {
        return vn::crypto::JsonSignature::sign(envelope(owner, issuer, type, payload), m_chain.key(signer));
    }

    // Credential records unsigned, without a chain: invalid, said so, and registered all the same.
    Resource *createCredentials(AccountInstance &instance, const QJsonObject &payload)
    {
        QTest::ignoreMessage(QtCriticalMsg, "No issuer declared on resource r-1");
        return Resource::create(envelope("leaf", Absent, "vantro.resource.AuthorCredentials", payload),
                                instance.identity(), &instance);
    }

    // The Authorization header that the server saw on a request to the realm.
    QByteArray authorizationSeen()
    {
        m_server.clearRequests();
        const std::unique_ptr<QNetworkReply> reply(vn::network::NetworkAccessManager::sharedInstance()->get(
            QNetworkRequest(m_server.url(QStringLiteral("/probe")))));
        QSignalSpy(reply.get(), &QNetworkReply::finished).wait(10000);
        return m_server.requestCount() == 1 ? m_server.lastRequest().headers.value("authorization")
                                            : "(no request)";
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_chain.isValid());
        QVERIFY(m_server.isListening());
        m_server.server().Get("/probe", [](const httplib::Request &, httplib::Response &response) {
            response.set_content("ok", "text/plain");
        });
        m_baseline = AuthorizationRegistry::instance()->count();
    }

    // The server waits for kept-alive connections to close before it stops.
    void cleanupTestCase() { vn::network::NetworkAccessManager::sharedInstance()->clearConnectionCache(); }

    void cleanup() { QCOMPARE(AuthorizationRegistry::instance()->count(), m_baseline); }

    void emptyChainMakesNothing()
    {
        QObject owner;
        QCOMPARE(AccountIdentity::loadChain(QJsonArray(), &owner), nullptr);
        QVERIFY(owner.children().isEmpty());
    }

    void chain_data()
    {
        QTest::addColumn<QJsonArray>("chain");
        QTest::addColumn<QList<bool>>("valid"); // per link, from the first element to the leaf
        QTest::addColumn<QStringList>("messages");

        const QJsonObject middle = m_chain.identity("middle", "root");
        const QJsonObject leaf = m_chain.identity("leaf", "middle", "middle");
        const QString failed = QStringLiteral("Account identity verification failed for %1");
        const QString mismatch = QStringLiteral("Account identity parent mismatch: %1 != %2");

        QTest::newRow("one link naming the root")
            << QJsonArray{m_chain.identity("middle", "root", "root")} << QList<bool>{true} << QStringList();
        QTest::newRow("one link naming another parent")
            << QJsonArray{m_chain.identity("middle", "root", "elsewhere")} << QList<bool>{false}
            << QStringList{mismatch.arg("root", "elsewhere")};
        QTest::newRow("one link signed by a stranger")
            << QJsonArray{m_chain.identity("middle", "stranger")} << QList<bool>{false}
            << QStringList{failed.arg("middle")};
        QTest::newRow("two links") << QJsonArray{middle, leaf} << QList<bool>{true, true} << QStringList();
        // An absent parent means the root, which is not the second link's signer.
        QTest::newRow("second link without parent")
            << QJsonArray{middle, m_chain.identity("leaf", "middle")} << QList<bool>{true, false}
            << QStringList{mismatch.arg("middle", "root")};
        QTest::newRow("broken first link under a valid leaf")
            << QJsonArray{m_chain.identity("middle", "stranger"), leaf} << QList<bool>{false, true}
            << QStringList{failed.arg("middle")};
        QTest::newRow("two failures") << QJsonArray{m_chain.identity("middle", "root", "elsewhere"),
                                                    m_chain.identity("leaf", "stranger", "middle")}
                                      << QList<bool>{false, false}
                                      << QStringList{mismatch.arg("root", "elsewhere"), failed.arg("leaf")};
    }

    void chain()
    {
        QFETCH(QJsonArray, chain);
        QFETCH(QList<bool>, valid);
        QFETCH(QStringList, messages);
        for (const QString &message : qAsConst(messages)) {
            QTest::ignoreMessage(QtCriticalMsg, qPrintable(message));
        }
        QObject owner;
        const AccountIdentity *leaf = AccountIdentity::loadChain(chain, &owner);

        // Walk up from the leaf: one identity per element, in array order, then the root.
        QList<bool> linkValidity;
        const Identity *identity = leaf;
        for (int index = chain.size() - 1; index >= 0; --index) {
            QVERIFY(identity);
            QCOMPARE(identity->uuid(), chain.at(index)[QLatin1String("id")].toString());
            QCOMPARE(identity->property("parent").value<Identity *>(), identity->parent());
            linkValidity.prepend(identity->isValid());
            identity = identity->parent();
        }
        QVERIFY(qobject_cast<const vn::account::RootIdentity *>(identity));
        QVERIFY(identity->verifyChain());
        QCOMPARE(owner.children().size(), chain.size() + 1);
        QCOMPARE(linkValidity, valid);
        QCOMPARE(leaf->verifyChain(), !valid.contains(false));
    }
    // Trusted and ranked by the chain, made by type; "message": empty for a valid resource.
    void trust_data()
    {
        QTest::addColumn<QJsonObject>("record");
        QTest::addColumn<bool>("chain");
        QTest::addColumn<int>("priority");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("className");

        const char *noIssuer = "No issuer declared on resource r-1";
        const char *failed = "Signature validation failed for resource r-1";
        const QString plain = QStringLiteral("vn::account::Resource");
        QTest::newRow("leaf") << issued("leaf", "leaf", "leaf") << true << 65535 << "" << plain;
        QTest::newRow("middle") << issued("middle", "middle", "middle") << true << 65534 << "" << plain;
        QTest::newRow("root") << issued("root", "root", "root") << true << 65533 << "" << plain;
        QTest::newRow("owner outside the chain")
            << issued("elsewhere", "leaf", "leaf") << true << 0 << "" << plain;
        QJsonObject tampered = issued("leaf", "leaf", "leaf");
        tampered.insert(QStringLiteral("payload"), QStringLiteral("changed"));
        QTest::newRow("tampered payload") << tampered << true << 65535 << failed << plain;
        QTest::newRow("signed by a stranger")
            << issued("leaf", "middle", "stranger") << true << 65535 << failed << plain;
        QTest::newRow("issuer in other case")
            << issued("leaf", "Leaf", "leaf") << true << 65535 << noIssuer << plain;
        QTest::newRow("no issuer") << issued("leaf", Absent, "leaf") << true << 65535 << noIssuer << plain;
        QTest::newRow("no chain") << issued("leaf", "leaf", "leaf") << false << 0 << noIssuer << plain;

        // A payload for both a database and a credential of a kind nobody supports.
        const QJsonObject payload{{"type", "none"},
                                  {"server", "https://db.example:6984/"},
                                  {"name", "catalogue"},
                                  {"authoringOptions", QJsonObject{{"autosave", true}}}};
        const auto typed = [&](const QJsonValue &type) {
            return issued("leaf", "leaf", "leaf", type, payload);
        };
        QTest::newRow("database") << typed("vantro.resource.Database") << true << 65535 << ""
                                  << "vn::account::Database";
        QTest::newRow("author credentials")
            << typed("vantro.resource.AuthorCredentials") << true << 65535 << ""
            << "vn::account::DatabaseCredentials";
        QTest::newRow("device credentials")
            << typed("vantro.resource.DeviceCredentials") << true << 65535 << ""
            << "vn::account::DatabaseCredentials";
        QTest::newRow("type in other case")
            << typed("vantro.resource.database") << true << 65535 << "" << plain;
        QTest::newRow("no type") << typed(Absent) << true << 65535 << "" << plain;
    }

    void trust()
    {
        QFETCH(QJsonObject, record);
        QFETCH(bool, chain);
        QFETCH(int, priority);
        QFETCH(QString, message);
        QFETCH(QString, className);

        AccountInstance instance(vn::account::Account::profile()); // registers the built-in types
        // A rival factory for a built-in type, registered after the built-in ones: never used.
        Resource::registerType("vantro.resource.Database",
                               [](const QJsonObject &, AccountIdentity *, QObject *) { return nullptr; });
        if (chain) { // middle, then leaf below the root
            setIdentityForTests(instance, AccountIdentity::loadChain(m_chain.records(), &instance));
        }
        if (!message.isEmpty()) {
            QTest::ignoreMessage(QtCriticalMsg, qPrintable(message));
        }
        if (className == QLatin1String("vn::account::DatabaseCredentials")) {
            QTest::ignoreMessage(QtWarningMsg, "Unsupported credential type \"none\" in resource \"r-1\"");
        }
        const Resource *resource = Resource::create(record, instance.identity(), &instance);
        QVERIFY(resource); // the rival factory was not asked
        QCOMPARE(resource->parent(), &instance);
        QCOMPARE(resource->isValid(), message.isEmpty());
        QCOMPARE(resource->priority(), priority);
        QCOMPARE(QString::fromLatin1(resource->metaObject()->className()), className);
        if (const auto *database = qobject_cast<const Database *>(resource)) {
            QCOMPARE(database->server(), QUrl(QStringLiteral("https://db.example:6984/")));
            QCOMPARE(database->name(), QStringLiteral("catalogue"));
            QCOMPARE(database->authoringOptions(), (QVariantMap{{"autosave", true}}));
        }
    }

    void credentials_data()
    {
        QTest::addColumn<QJsonObject>("payload");
        QTest::addColumn<bool>("supported");    // an unsupported kind registers nothing and says so
        QTest::addColumn<QByteArray>("header"); // what a request to the realm carries

        const QJsonObject token{{"token", "db-token.42"}};
        const QByteArray bearer = "Bearer db-token.42";
        QTest::newRow("author, bearer") << credentialPayload("bearer", token) << true << bearer;
        const QJsonObject user{{"userName", "ada"}, {"password", "pä55:wörd"}};
        QTest::newRow("basic") << credentialPayload("basic", user) << true
                               << QByteArray("Basic YWRhOnDDpDU1OnfDtnJk"); // ada:pä55:wörd in UTF-8
        QTest::newRow("kind in other case") << credentialPayload("Bearer", token) << false << QByteArray();
        // Registered for an empty host, which no request matches.
        QTest::newRow("no realm") << credentialPayload("bearer", token, Absent) << true << QByteArray();
    }

    void credentials()
    {
        QFETCH(QJsonObject, payload);
        QFETCH(bool, supported);
        QFETCH(QByteArray, header);

        AccountInstance instance(vn::account::Account::profile());
        if (!supported) {
            QTest::ignoreMessage(QtWarningMsg, "Unsupported credential type \"Bearer\" in resource \"r-1\"");
        }
        Resource *resource = createCredentials(instance, payload);
        QCOMPARE(AuthorizationRegistry::instance()->count(), m_baseline + int(supported));
        QCOMPARE(authorizationSeen(), header);
        delete resource;
        QCOMPARE(authorizationSeen(), QByteArray());
    }

    // Consumer key and token travel in the header; the secrets only shape the signature, which is
    // recomputed here with each secret in its own place.
    void oauth1()
    {
        const QString consumerSecret = QStringLiteral("cs/secret+1");
        const QString tokenSecret = QStringLiteral("ts&secret 2");
        AccountInstance instance(vn::account::Account::profile());
        createCredentials(instance, credentialPayload("oauth1", {{"consumerKey", "ck-catalogue"},
                                                                 {"consumerSecret", consumerSecret},
                                                                 {"token", "tk-ada"},
                                                                 {"tokenSecret", tokenSecret}}));
        QString signature;
        QVector<QPair<QString, QString>> signedParameters; // the header's but the signature
        auto pairs = QRegularExpression(QStringLiteral("(\\w+)=\"([^\"]*)\""))
                         .globalMatch(QString::fromLatin1(authorizationSeen()));
        while (pairs.hasNext()) {
            const QRegularExpressionMatch pair = pairs.next();
            const QString value = QUrl::fromPercentEncoding(pair.captured(2).toLatin1());
            pair.captured(1) == "oauth_signature" ? void(signature = value)
                                                  : signedParameters.append({pair.captured(1), value});
        }
        QVERIFY(signedParameters.contains({"oauth_consumer_key", "ck-catalogue"}) &&
                signedParameters.contains({"oauth_token", "tk-ada"}));
        const vn::network::OAuth1Signature expected =
            vn::network::signOAuth1Request("GET", m_server.url(QStringLiteral("/probe")), QByteArray(),
                                           signedParameters, consumerSecret, tokenSecret);
        QCOMPARE(signature.toLatin1(), expected.signature);
    }
};

QTEST_GUILESS_MAIN(TestResource)
#include "tst_resource.moc"
