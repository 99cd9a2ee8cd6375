// Requests per second that the development service sustains for "GET api/v1/consumer" with a
// bearer token, from a few keep-alive clients on threads of the same process (on this machine's
// two cores, clients and service share the processors).

#include <devservice.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

#include <httplib.h>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

constexpr int ClientThreads = 4;
constexpr int Seconds = 5;

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // The per-request log line is a terminal's concern; it is not what is measured here.
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice*.info=false"));
    vn::devservice::DevService service;
    service.setJournalLimit(0);
    if (!service.listen(QStringLiteral("127.0.0.1"), 0)) {
        std::fprintf(stderr, "cannot start the development service\n");
        return 1;
    }
    const std::string base = service.url().path().toStdString();
    httplib::Client login("127.0.0.1", service.port());
    const auto answer = login.Post((base + "api/v1/authenticate").c_str(),
                                   R"({"authType": "credentials", "username": "bob@example.com",
                                       "password": "bob-demo-password"})",
                                   "application/json");
    if (!answer || answer->status != 200) {
        std::fprintf(stderr, "cannot log in\n");
        return 1;
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
    for (int client = 0; client < ClientThreads; ++client) {
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
    std::this_thread::sleep_for(std::chrono::seconds(Seconds));
    running = false;
    for (std::thread &client : clients) {
        client.join();
    }
    const double elapsed = timer.nsecsElapsed() / 1e9;
    std::printf("GET consumer: %ld served, %ld failed in %.2f s by %d keep-alive clients\n", served.load(),
                failed.load(), elapsed, ClientThreads);
    std::printf("requests per second: %.0f\n", served.load() / elapsed);
    return failed.load() == 0 ? 0 : 1;
}
