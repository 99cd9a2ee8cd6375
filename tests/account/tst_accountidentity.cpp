#include "trustfixture.h"

#include <VantroAccount/accountidentity.h>
#include <VantroAccount/rootidentity.h>
#include <VantroCrypto/jsonsignature.h>

#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

using vn::account::AccountIdentity;
using vn::account::Identity;
using vn::account::RootIdentity;
using vn::crypto::PrivateKey;

namespace {

QStringList s_identityMessages;
QtMessageHandler s_previousHandler = nullptr;

// Records the identity category's messages in order and hands every message on to QtTest, so that
// QTest::ignoreMessage still applies.
void recordMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (qstrcmp(context.category, "vantro.account.identity") == 0) {
        s_identityMessages.append(message);
    }
    s_previousHandler(type, context, message);
}

} // namespace

class TestAccountIdentity : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    PrivateKey m_rootKey;
    PrivateKey m_keyA;
    PrivateKey m_keyB;
    PrivateKey m_stranger;

    // An identity record signed with @p signer; @p parent null leaves "parent" out.
    QJsonObject record(const QString &id, const PrivateKey &key, const PrivateKey &signer,
                       const QString &parent = QString()) const
    {
        QJsonObject object{{QStringLiteral("id"), id},
                           {QStringLiteral("name"), id.toUpper()},
                           {QStringLiteral("publicKey"), QString::fromLatin1(key.publicKey().toPEM())}};
        if (!parent.isNull()) {
            object.insert(QStringLiteral("parent"), parent);
        }
        return vn::crypto::JsonSignature::sign(object, signer);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        for (PrivateKey *key : {&m_rootKey, &m_keyA, &m_keyB, &m_stranger}) {
            *key = PrivateKey(vn::crypto::AbstractKey::RSA, 2048);
            QVERIFY(key->isValid());
        }
        const QString path = m_folder.filePath(QStringLiteral("account.json"));
        const QJsonObject configuration =
            trustfixture::configuration(QStringLiteral("https://identity.example"), m_rootKey.publicKey());
        QVERIFY(trustfixture::writeFile(
            path, trustfixture::signedDocument(configuration, trustfixture::developmentConfigKey())));
        qputenv("VANTRO_ACCOUNT_CONFIG", path.toLocal8Bit());
        s_previousHandler = qInstallMessageHandler(recordMessage);
    }

    void cleanupTestCase() { qInstallMessageHandler(s_previousHandler); }

    void init() { s_identityMessages.clear(); }

    void emptyChainMakesNothing()
    {
        QObject owner;
        QCOMPARE(AccountIdentity::loadChain(QJsonArray(), &owner), nullptr);
        QVERIFY(owner.children().isEmpty());
    }

    void rootIdentity()
    {
        QObject owner;
        const RootIdentity root(&owner);
        QCOMPARE(root.uuid(), QStringLiteral("root"));
        QCOMPARE(root.name(), QStringLiteral("Test Root"));
        QCOMPARE(root.publicKey(), m_rootKey.publicKey());
        QVERIFY(root.signature().isEmpty());
        QCOMPARE(root.parent(), nullptr);
        QVERIFY(root.verifyChain());
    }

    void chain_data()
    {
        QTest::addColumn<QJsonArray>("chain");
        QTest::addColumn<QList<bool>>("valid"); // per link, from the first element to the leaf
        QTest::addColumn<QStringList>("messages");

        const QJsonObject a = record(QStringLiteral("id-a"), m_keyA, m_rootKey);
        const QString verifyFailed = QStringLiteral("Account identity verification failed for %1");
        const QString mismatch = QStringLiteral("Account identity parent mismatch: %1 != %2");

        QTest::newRow("one link, no parent") << QJsonArray{a} << QList<bool>{true} << QStringList();
        QTest::newRow("one link, parent names the root")
            << QJsonArray{record(QStringLiteral("id-a"), m_keyA, m_rootKey, QStringLiteral("root"))}
            << QList<bool>{true} << QStringList();
        QTest::newRow("one link, parent names another identity")
            << QJsonArray{record(QStringLiteral("id-a"), m_keyA, m_rootKey, QStringLiteral("elsewhere"))}
            << QList<bool>{false}
            << QStringList{mismatch.arg(QStringLiteral("root"), QStringLiteral("elsewhere"))};
        QTest::newRow("one link, signed by a stranger")
            << QJsonArray{record(QStringLiteral("id-a"), m_keyA, m_stranger)} << QList<bool>{false}
            << QStringList{verifyFailed.arg(QStringLiteral("id-a"))};
        QJsonObject altered = a;
        altered.insert(QStringLiteral("name"), QStringLiteral("Mallory"));
        QTest::newRow("one link, altered after signing")
            << QJsonArray{altered} << QList<bool>{false}
            << QStringList{verifyFailed.arg(QStringLiteral("id-a"))};

        QTest::newRow("two links") << QJsonArray{a, record(QStringLiteral("id-b"), m_keyB, m_keyA,
                                                           QStringLiteral("id-a"))}
                                   << QList<bool>{true, true} << QStringList();
        QTest::newRow("two links, second without parent")
            << QJsonArray{a, record(QStringLiteral("id-b"), m_keyB, m_keyA)} << QList<bool>{true, false}
            << QStringList{mismatch.arg(QStringLiteral("id-a"), QStringLiteral("root"))};
        QTest::newRow("broken first link under a valid leaf")
            << QJsonArray{record(QStringLiteral("id-a"), m_keyA, m_stranger),
                          record(QStringLiteral("id-b"), m_keyB, m_keyA, QStringLiteral("id-a"))}
            << QList<bool>{false, true} << QStringList{verifyFailed.arg(QStringLiteral("id-a"))};

        QJsonObject keyless{{QStringLiteral("id"), QStringLiteral("id-a")},
                            {QStringLiteral("publicKey"), QStringLiteral("not a key")}};
        QTest::newRow("first link with an unreadable key")
            << QJsonArray{vn::crypto::JsonSignature::sign(keyless, m_rootKey),
                          record(QStringLiteral("id-b"), m_keyB, m_keyA, QStringLiteral("id-a"))}
            << QList<bool>{true, false} << QStringList{verifyFailed.arg(QStringLiteral("id-b"))};
        QTest::newRow("element not an object")
            << QJsonArray{a, 42} << QList<bool>{true, false} << QStringList{verifyFailed.arg(QString())};

        QTest::newRow("three links, two failures in order")
            << QJsonArray{record(QStringLiteral("id-a"), m_keyA, m_rootKey, QStringLiteral("elsewhere")),
                          record(QStringLiteral("id-b"), m_keyB, m_stranger, QStringLiteral("id-a")),
                          record(QStringLiteral("id-c"), m_stranger, m_keyB, QStringLiteral("id-b"))}
            << QList<bool>{false, false, true}
            << QStringList{mismatch.arg(QStringLiteral("root"), QStringLiteral("elsewhere")),
                           verifyFailed.arg(QStringLiteral("id-b"))};
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
        AccountIdentity *leaf = AccountIdentity::loadChain(chain, &owner);
        QVERIFY(leaf);
        QCOMPARE(s_identityMessages, messages);

        // Walk up from the leaf: one identity per element, in array order, then the root.
        QList<bool> linkValidity;
        const Identity *identity = leaf;
        for (int index = chain.size() - 1; index >= 0; --index) {
            QVERIFY(identity);
            QCOMPARE(identity->uuid(), chain.at(index).toObject().value(QStringLiteral("id")).toString());
            linkValidity.prepend(identity->isValid());
            QCOMPARE(identity->QObject::parent(), &owner);
            // QML reaches the signer through the "parent" property.
            QCOMPARE(identity->property("parent").value<Identity *>(), identity->parent());
            identity = identity->parent();
        }
        QVERIFY(qobject_cast<const RootIdentity *>(identity));
        QCOMPARE(identity->QObject::parent(), &owner);
        QCOMPARE(owner.children().size(), chain.size() + 1);

        QCOMPARE(linkValidity, valid);
        QCOMPARE(leaf->verifyChain(), !valid.contains(false));
    }

    void chainWithoutInstanceBelongsToItsLeaf()
    {
        AccountIdentity *leaf = AccountIdentity::loadChain(
            {record(QStringLiteral("id-a"), m_keyA, m_rootKey),
             record(QStringLiteral("id-b"), m_keyB, m_keyA, QStringLiteral("id-a"))},
            nullptr);
        QVERIFY(leaf && leaf->verifyChain());
        const QPointer<Identity> root = leaf->parent()->parent();
        QVERIFY(root);
        delete leaf;
        QVERIFY(root.isNull());
    }
};

QTEST_GUILESS_MAIN(TestAccountIdentity)
#include "tst_accountidentity.moc"
