// Requests per second that the development service sustains for "GET api/v1/consumer" with a
// bearer token, from a few keep-alive clients on threads of the same process (on this machine's
// two cores, clients and service share the processors). The goal is far above what a service that
// waits on delayed acknowledgements could serve.

#include "benchsupport.h"

#include <devservice.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

#include <httplib.h>

#include <atomic>
#include <thread>
#include <vector>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // The per-request log line is a terminal's concern; it is not what is measured here.
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice*.info=false"));
    vn::devservice::DevService service;
    service.setJournalLimit(0);
    if (!service.listen(QStringLiteral("127.0.0.1"), 0)) {
        bench::fail("devservice_throughput", "cannot start the development service");
    }
    const std::string base = service.url().path().toStdString();
    httplib::Client login("127.0.0.1", service.port());
    const auto answer = login.Post((base + "api/v1/authenticate").c_str(),
                                   R"({"authType": "credentials", "username": "bob@example.com",
                                       "password": "bob-demo-password"})",
                                   "application/json");
    if (!answer || answer->status != 200) {
        bench::fail("devservice_throughput", "cannot log in");
    }
    const std::string token = QJsonDocument::fromJson(QByteArray::fromStdString(answer->body))
                                  .object()
                                  .value(QLatin1String("token"))
                                  .toString()
                                  .toStdString();

    std::atomic<bool> running{true};
    std::atomic<long> served{0};
    std::atomic<long> failed{0};
    std::vector<std::thread> clients;
    QElapsedTimer timer;
    timer.start();
    for (int client = 0; client < 4; ++client) {
        clients.emplace_back([&] {
            httplib::Client connection("127.0.0.1", service.port());
            connection.set_keep_alive(true);
            const httplib::Headers headers{{"Authorization", "Bearer " + token}};
            const std::string path = base + "api/v1/consumer";
            while (running) {
                const auto result = connection.Get(path.c_str(), headers);
                (result && result->status == 200 ? served : failed)++;
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(5));
    running = false;
    for (std::thread &client : clients) {
        client.join();
    }
    if (failed.load() > 0) {
        bench::fail("devservice_throughput", "requests failed");
    }
    bench::figure("devservice_throughput", "GET api/v1/consumer, 4 keep-alive clients",
                  served.load() / (timer.nsecsElapsed() / 1e9), "requests/s", 5000, true);
    return 0;
}
