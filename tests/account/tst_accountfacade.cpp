// The Account facade's requests and lookups against the development service in-process, served
// below a base path: where each helper sends, with which headers and body, and with whose token.

#include "accountfixture.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <Vantro/patchrequest.h>
#include <Vantro/postrequest.h>
#include <Vantro/putrequest.h>
#include <VantroAccount/resource.h>

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using vn::account::Account;
using vn::account::Resource;
using Headers = QMap<QByteArray, QByteArray>;
using F = AccountFixture;

class TestAccountFacade : public QObject
{
    Q_OBJECT

    AccountFixture m_fixture;
    std::unique_ptr<Account> m_account;

private slots:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(1.0, QStringLiteral("/base")));
        m_account = std::make_unique<Account>();
        QVERIFY(F::connect(*m_account, false));
    }

    void cleanupTestCase() { QVERIFY(F::logout(*m_account)); }

    void requests_data()
    {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<Headers>("headers");
        QTest::addColumn<QByteArray>("contentType");

        const QByteArray json = "application/json";
        QTest::newRow("get") << QByteArray("GET") << "logins?format=all_fields"
                             << QByteArray("/base/api/v1/logins") << Headers() << QByteArray();
        QTest::newRow("get from another host")
            << QByteArray("GET") << "http://localhost:%1/base/api/v1/consumer"
            << QByteArray("/base/api/v1/consumer") << Headers() << QByteArray();
        QTest::newRow("post array, indented")
            << QByteArray("POST") << "echo" << QByteArray("/base/api/v1/echo") << Headers() << json;
        QTest::newRow("patch with its own content type")
            << QByteArray("PATCH") << "echo" << QByteArray("/base/api/v1/echo")
            << Headers{{"Content-Type", "application/json-patch+json"}, {"X-Trace", "7"}}
            << QByteArray("application/json-patch+json");
    }

    void requests()
    {
        QFETCH(QByteArray, method);
        QFETCH(QString, url);
        QFETCH(QByteArray, path);
        QFETCH(Headers, headers);
        QFETCH(QByteArray, contentType);

        const QUrl target(url.contains(QLatin1String("%1")) ? url.arg(m_fixture.service.port()) : url);
        const QJsonArray array{QJsonObject{{QStringLiteral("name"), QStringLiteral("value")}}, 2};
        QByteArray body = QJsonDocument(array).toJson(QJsonDocument::Compact);
        vn::Request *request = nullptr;
        if (method == "GET") {
            request = m_account->getRequest(target);
            body.clear();
        } else if (method == "POST") {
            request = m_account->postRequest(target, array);
            body = QJsonDocument(array).toJson(QJsonDocument::Indented);
        } else {
            request = m_account->patchRequest(target, array, headers);
        }
        QCOMPARE(request->url().host(), target.isRelative() ? QStringLiteral("127.0.0.1") : target.host());
        m_fixture.service.clearJournal();
        QSignalSpy finished(request, &vn::Request::finished);
        QVERIFY(finished.wait());

        const auto journal = m_fixture.service.journal();
        QCOMPARE(journal.size(), 1);
        const auto &received = journal.first();
        QCOMPARE(received.method + ' ' + received.path, method + ' ' + path);
        QCOMPARE(received.headers.value("content-type"), contentType);
        for (auto header = headers.cbegin(); header != headers.cend(); ++header) {
            QCOMPARE(received.headers.value(header.key().toLower()), header.value());
        }
        QCOMPARE(received.body, body);
        // The token goes to the service's host only, not to another name for the same machine.
        QCOMPARE(received.headers.value("authorization"),
                 target.isRelative() ? "Bearer " + QByteArray(m_account->accessToken()) : QByteArray());
    }

    void findResources_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("count");
        QTest::newRow("author credentials") << "vantro.resource.AuthorCredentials" << 3;
        QTest::newRow("type differs in case") << "vantro.resource.database" << 0;
        QTest::newRow("type nobody has") << "vantro.resource.Printer" << 0;
    }

    void findResources()
    {
        QFETCH(QString, type);
        QFETCH(int, count);
        const QList<Resource *> found = m_account->findResources(type);
        QCOMPARE(found.size(), count);
        for (int index = 0; index < found.size(); ++index) { // the matching ones, in list order
            QCOMPARE(found[index]->type(), type);
            QVERIFY(index == 0 || m_account->resourceList().indexOf(found[index - 1]) <
                                      m_account->resourceList().indexOf(found[index]));
        }
        QQmlListProperty<Resource> list = m_account->resources();
        QCOMPARE(list.count(&list), m_account->resourceList().size());
        QCOMPARE(list.at(&list, 1), m_account->resourceList().at(1));
    }

    void updatesOnDemand()
    {
        QSignalSpy consumerChanged(m_account.get(), &Account::consumerChanged);
        QSignalSpy resourcesChanged(m_account.get(), &Account::resourcesChanged);
        m_fixture.service.clearJournal();
        m_account->updateConsumer();
        m_account->updateResources();
        QTRY_COMPARE(consumerChanged.size(), 1);
        QTRY_COMPARE(m_fixture.countRequests("GET", "/base/api/v1/entitled"), 1);
        QTest::qWait(50);
        QCOMPARE(resourcesChanged.size(), 0);
        QCOMPARE(m_fixture.countRequests("GET", "/base/api/v1/consumer"), 1);
    }
};

QTEST_GUILESS_MAIN(TestAccountFacade)
#include "tst_accountfacade.moc"
