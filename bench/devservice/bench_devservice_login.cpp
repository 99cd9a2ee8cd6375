// The login round trip (a credential POST to "api/v1/authenticate" and its answer) through
// vn::PostRequest against a bare QNetworkAccessManager POST of the same body to the same endpoint:
// what the platform's request class adds to the exchange the account library makes at every login.

#include <devservice.h>

#include <Vantro/postrequest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int WarmUpRounds = 20;
constexpr int Rounds = 300;

double median(std::vector<qint64> samples)
{
    std::sort(samples.begin(), samples.end());
    const size_t middle = samples.size() / 2;
    return samples.size() % 2 ? double(samples[middle]) : (samples[middle - 1] + samples[middle]) / 2.0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice*.info=false"));
    vn::devservice::DevService service;
    service.setJournalLimit(0);
    if (!service.listen(QStringLiteral("127.0.0.1"), 0)) {
        std::fprintf(stderr, "cannot start the development service\n");
        return 1;
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

    for (int round = 0; round < WarmUpRounds; ++round) {
        throughRequest();
        bare();
    }
    // Interleaved, so that both see the same state of the machine and of the service.
    std::vector<qint64> requestTimes;
    std::vector<qint64> bareTimes;
    QElapsedTimer timer;
    for (int round = 0; round < Rounds; ++round) {
        timer.start();
        throughRequest();
        requestTimes.push_back(timer.nsecsElapsed());
        timer.start();
        bare();
        bareTimes.push_back(timer.nsecsElapsed());
    }
    if (failed) {
        std::fprintf(stderr, "a login failed\n");
        return 1;
    }
    const double throughRequestMedian = median(requestTimes) / 1e6;
    const double bareMedian = median(bareTimes) / 1e6;
    std::printf("login round trip, median of %d: vn::PostRequest %.3f ms, QNetworkAccessManager %.3f ms\n",
                Rounds, throughRequestMedian, bareMedian);
    std::printf("ratio vn::PostRequest / QNetworkAccessManager: %.2f\n", throughRequestMedian / bareMedian);
    return 0;
}
