// The login round trip (a credential POST to "api/v1/authenticate" and its answer) through
// vn::PostRequest against a bare QNetworkAccessManager POST of the same body to the same endpoint:
// what the platform's request class adds to the exchange the account library makes at every login.
// Wall time: the service answers on threads of its own.

#include "benchsupport.h"

#include <devservice.h>

#include <Vantro/postrequest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice*.info=false"));
    vn::devservice::DevService service;
    service.setJournalLimit(0);
    if (!service.listen(QStringLiteral("127.0.0.1"), 0)) {
        bench::fail("devservice_login", "cannot start the development service");
    }
    QNetworkRequest request(service.url().resolved(QUrl(QStringLiteral("api/v1/authenticate"))));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    const QJsonObject body{{QStringLiteral("authType"), QStringLiteral("credentials")},
                           {QStringLiteral("username"), QStringLiteral("ada@example.com")},
                           {QStringLiteral("password"), QStringLiteral("ada-demo-password")},
                           {QStringLiteral("persistent"), false},
                           {QStringLiteral("hostInfo"), QStringLiteral("bench")}};
    const QByteArray compactBody = QJsonDocument(body).toJson(QJsonDocument::Compact);
    QNetworkAccessManager network;
    QEventLoop loop;
    bool failed = false;

    // Each measures one exchange up to the parsed token, as a caller of either would use it.
    auto throughRequest = [&] {
        auto *post = new vn::PostRequest(request, &network, body); // deletes itself once finished
        QObject::connect(post, &vn::Request::finished, &loop, [&, post] {
            failed |=
                !post->isOk(200) || post->responseObject().value(QLatin1String("token")).toString().isEmpty();
            loop.quit();
        });
        loop.exec();
    };
    auto bare = [&] {
        QNetworkReply *reply = network.post(request, compactBody);
        QObject::connect(reply, &QNetworkReply::finished, &loop, [&, reply] {
            failed |= reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200 ||
                      QJsonDocument::fromJson(reply->readAll())
                          .object()
                          .value(QLatin1String("token"))
                          .toString()
                          .isEmpty();
            reply->deleteLater();
            loop.quit();
        });
        loop.exec();
    };

    bench::compare("devservice_login", {"vn::PostRequest", throughRequest}, {"QNetworkAccessManager", bare},
                   {300, 1, 20, bench::Clock::Wall}, 1.2);
    if (failed) {
        bench::fail("devservice_login", "a login failed");
    }
    return 0;
}
