#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <Vantro/getrequest.h>

#include "testhttpserver.h"

#include <QNetworkReply>
#include <QScopeGuard>
#include <QtTest>

#include <httplib.h>

#include <atomic>
#include <thread>

using namespace vn::network;
using vn::test::TestHttpServer;

namespace {

struct Answer
{
    int status = 0;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QByteArray body;
    QUrl location;
};

Answer waitFor(QNetworkReply *reply)
{
    std::unique_ptr<QNetworkReply> owner(reply);
    if (!reply->isFinished()) {
        QSignalSpy finished(reply, &QNetworkReply::finished);
        finished.wait(10000);
    }
    Answer answer;
    answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    answer.error = reply->error();
    answer.body = reply->readAll();
    answer.location = reply->url().resolved(reply->header(QNetworkRequest::LocationHeader).toUrl());
    return answer;
}

AuthorizationHandle registerBearer(const QString &host, const QByteArray &token)
{
    const auto registry = AuthorizationRegistry::instance();
    return AuthorizationHandle(registry->add(new BearerAuthorization({host}, token)),
                               HandleDeleter(registry));
}

// Both answer with the Authorization header they received, so the test reads what each one saw.
void echoAuthorization(httplib::Server &server)
{
    server.Get("/echo", [](const httplib::Request &request, httplib::Response &response) {
        response.set_content(request.get_header_value("Authorization"), "text/plain");
    });
}

} // namespace

class TestNetworkAccessManager : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_first.isListening());
        QVERIFY(m_second.isListening());
        echoAuthorization(m_first.server());
        echoAuthorization(m_second.server());
        const std::string target = m_second.url(QStringLiteral("/echo")).toString().toStdString();
        m_first.server().Get(
            "/redirect", [target](const httplib::Request &request, httplib::Response &response) {
                response.set_content(request.get_header_value("Authorization"), "text/plain");
                response.set_redirect(target);
            });
    }

    void cleanup() { QCOMPARE(AuthorizationRegistry::instance()->count(), 0); }

    // Open keep-alive connections would hold the servers' threads until their idle time-out.
    void cleanupTestCase() { NetworkAccessManager::sharedInstance()->clearConnectionCache(); }

    void credentialByHost_data()
    {
        QTest::addColumn<bool>("toSecond");
        QTest::addColumn<QByteArray>("callerHeader");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("registered host") << false << QByteArray() << QByteArray("Bearer first-host");
        QTest::newRow("other loopback host") << true << QByteArray() << QByteArray();
        QTest::newRow("caller's own header stays")
            << false << QByteArray("Basic b3duOm93bg==") << QByteArray("Basic b3duOm93bg==");
    }

    void credentialByHost()
    {
        QFETCH(bool, toSecond);
        QFETCH(QByteArray, callerHeader);
        QFETCH(QByteArray, expected);
        const AuthorizationHandle handle = registerBearer(m_first.host(), "first-host");

        QNetworkRequest request((toSecond ? m_second : m_first).url(QStringLiteral("/echo")));
        if (!callerHeader.isEmpty()) {
            request.setRawHeader("Authorization", callerHeader);
        }
        const Answer answer = waitFor(NetworkAccessManager::sharedInstance()->get(request));
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.body, expected);
    }

    void qtRedirectDropsCredential_data()
    {
        QTest::addColumn<int>("how");
        QTest::newRow("request policy") << 0;
        QTest::newRow("manager policy") << 1;
        QTest::newRow("legacy follow attribute") << 2;
    }

    void qtRedirectDropsCredential()
    {
        QFETCH(int, how);
        const AuthorizationHandle handle = registerBearer(m_first.host(), "first-host");
        NetworkAccessManager *manager = NetworkAccessManager::sharedInstance();
        QNetworkRequest request(m_first.url(QStringLiteral("/redirect")));
        if (how == 0) {
            request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                 QNetworkRequest::NoLessSafeRedirectPolicy);
        } else if (how == 1) {
            manager->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
        } else {
            QT_WARNING_PUSH
            QT_WARNING_DISABLE_DEPRECATED
            request.setAttribute(QNetworkRequest::FollowRedirectsAttribute, true);
            QT_WARNING_POP
        }
        m_second.clearRequests();

        const Answer first = waitFor(manager->get(request));
        manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
        QCOMPARE(first.body, QByteArray("Bearer first-host"));
        QCOMPARE(first.status, 302);
        QCOMPARE(m_second.requestCount(), 0);

        // The next hop, sent anew through the manager, is judged for its own origin.
        QCOMPARE(first.location, m_second.url(QStringLiteral("/echo")));
        const Answer second = waitFor(manager->get(QNetworkRequest(first.location)));
        QCOMPARE(second.status, 200);
        QCOMPARE(second.body, QByteArray());
    }

    void requestRedirectJudgedPerHop_data()
    {
        QTest::addColumn<bool>("registerSecond");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("credential of the first host stays behind") << false << QByteArray();
        QTest::newRow("second host gets its own") << true << QByteArray("Bearer second-host");
    }

    void requestRedirectJudgedPerHop()
    {
        QFETCH(bool, registerSecond);
        QFETCH(QByteArray, expected);
        const AuthorizationHandle first = registerBearer(m_first.host(), "first-host");
        const AuthorizationHandle second =
            registerSecond ? registerBearer(m_second.host(), "second-host") : AuthorizationHandle();

        QObject owner;
        auto *request = new vn::GetRequest(QNetworkRequest(m_first.url(QStringLiteral("/redirect"))),
                                           NetworkAccessManager::sharedInstance(), &owner);
        QSignalSpy finished(request, &vn::Request::finished);
        QVERIFY(finished.wait(10000));
        QVERIFY(request->isOk(200));
        QCOMPARE(request->rawResponse(), expected);
    }

    void handleDeleterWithdraws()
    {
        AuthorizationHandle handle = registerBearer(m_first.host(), "short-lived");
        const QNetworkRequest request(m_first.url(QStringLiteral("/echo")));
        QCOMPARE(waitFor(NetworkAccessManager::sharedInstance()->get(request)).body,
                 QByteArray("Bearer short-lived"));
        handle.reset();
        QCOMPARE(waitFor(NetworkAccessManager::sharedInstance()->get(request)).body, QByteArray());
    }

    void concurrentRegistration()
    {
        const auto registry = AuthorizationRegistry::instance();
        const AuthorizationHandle steady = registerBearer(m_first.host(), "steady");
        std::atomic<bool> stop{false};
        std::atomic<int> churned{0};
        std::vector<std::thread> threads;
        // Joins the threads on every way out, a failed check included.
        const auto joiner = qScopeGuard([&] {
            stop = true;
            for (std::thread &thread : threads) {
                thread.join();
            }
        });
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                const QByteArray token = "churn-" + QByteArray::number(t);
                for (int i = 0; !stop; ++i) {
                    AuthorizationHandle handle = registerBearer(QStringLiteral("127.0.0.1"), token);
                    if (i % 2) {
                        registry->remove(handle.release());
                    }
                    registry->hasAuthorization(QUrl(QStringLiteral("http://127.0.0.1/")));
                    ++churned;
                }
            });
        }

        NetworkAccessManager *manager = NetworkAccessManager::sharedInstance();
        const QNetworkRequest request(m_first.url(QStringLiteral("/echo")));
        for (int batch = 0; batch < 5; ++batch) {
            std::vector<QNetworkReply *> replies;
            for (int i = 0; i < 8; ++i) {
                replies.push_back(manager->get(request));
            }
            for (QNetworkReply *reply : replies) {
                const Answer answer = waitFor(reply);
                QCOMPARE(answer.status, 200);
                QVERIFY2(answer.body == "Bearer steady" || answer.body.startsWith("Bearer churn-"),
                         answer.body.constData());
            }
        }
        QVERIFY(churned > 0);
        stop = true;
        for (std::thread &thread : threads) {
            thread.join();
        }
        threads.clear();
        QCOMPARE(registry->count(), 1);
    }

private:
    TestHttpServer m_first{QStringLiteral("127.0.0.1")};
    TestHttpServer m_second{QStringLiteral("127.0.0.2")};
};

QTEST_GUILESS_MAIN(TestNetworkAccessManager)
#include "tst_networkaccessmanager.moc"
