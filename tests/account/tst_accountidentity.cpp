// Identity chains as the service hands them out: each link checked against its parent, up to the
// built-in root.

#include "trustfixture.h"

#include <VantroAccount/accountidentity.h>
#include <VantroAccount/rootidentity.h>

#include <QtTest>

using vn::account::AccountIdentity;
using vn::account::Identity;
using vn::account::RootIdentity;

class TestAccountIdentity : public QObject
{
    Q_OBJECT
    trustfixture::Chain m_chain;

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_chain.isValid()); }

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

        QTest::newRow("one link") << QJsonArray{middle} << QList<bool>{true} << QStringList();
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
        QVERIFY(qobject_cast<const RootIdentity *>(identity));
        QVERIFY(identity->verifyChain());
        QCOMPARE(owner.children().size(), chain.size() + 1);
        QCOMPARE(linkValidity, valid);
        QCOMPARE(leaf->verifyChain(), !valid.contains(false));
    }
};

QTEST_GUILESS_MAIN(TestAccountIdentity)
#include "tst_accountidentity.moc"
