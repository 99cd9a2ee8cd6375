#include "devservice.h"

#include "accountapi.h"
#include "developmentkeys.h"
#include "logging_p.h"
#include "playedservice.h"
#include "socketcontrol.h"

#include <VantroCrypto/jsonsignature.h>

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonDocument>
#include <QMutex>
#include <QSaveFile>
#include <QThread>

#include <httplib.h>

#include <sys/socket.h>

#include <atomic>
#include <optional>
#include <thread>

namespace vn::devservice {

static_assert(DevService::DefaultTokenLifetime == AccountApi::DefaultTokenLifetime);
static_assert(DevService::DefaultServiceTokenLifetime == AccountApi::DefaultServiceTokenLifetime);
static_assert(DevService::DefaultChallengeLifetime == AccountApi::DefaultChallengeLifetime);

namespace {

// Connections are served by a pool of threads, each holding one connection for as long as the
// client keeps it alive: enough of them that several clients with several connections each are
// served at once.
constexpr size_t WorkerThreads = 32;
// A played service answers a demo's few requests.
constexpr size_t PlayedServiceWorkerThreads = 4;
constexpr size_t KeepAliveRequests = 1000;
constexpr int MaximumLoggedPathLength = 200;

const QByteArray MalformedBody = QByteArrayLiteral(R"({"malformed": )");

// What the request logger needs to know about the request that the current thread serves.
struct RequestTiming
{
    QElapsedTimer timer;
    bool started = false;
    bool dropped = false;
};
thread_local RequestTiming currentRequest;

// The service URL as configurations and tokens name it: without a trailing "/".
QString serviceUrlText(const QUrl &url)
{
    QString text = url.toString();
    while (text.endsWith(QLatin1Char('/'))) {
        text.chop(1);
    }
    return text;
}

bool isLoopback(const std::string &address)
{
    const QHostAddress host(QString::fromStdString(address));
    bool isMappedV4 = false;
    const QHostAddress v4(host.toIPv4Address(&isMappedV4));
    return host.isLoopback() || (isMappedV4 && v4.isLoopback());
}

bool isKnownMethod(const std::string &method)
{
    for (const char *known : {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"}) {
        if (method == known) {
            return true;
        }
    }
    return false;
}

bool isWildcard(const QString &address)
{
    const QHostAddress host(address);
    return host == QHostAddress::AnyIPv4 || host == QHostAddress::AnyIPv6 || host == QHostAddress::Any;
}

QUrl urlOf(const QString &address, quint16 port, const QString &path)
{
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(address.isEmpty() || isWildcard(address) ? QStringLiteral("127.0.0.1") : address);
    url.setPort(port);
    url.setPath(path.isEmpty() ? QStringLiteral("/") : path);
    return url;
}

QString normalisedBase(const QString &path)
{
    QString base = path.trimmed();
    while (base.endsWith(QLatin1Char('/'))) {
        base.chop(1);
    }
    if (!base.isEmpty() && !base.startsWith(QLatin1Char('/'))) {
        base.prepend(QLatin1Char('/'));
    }
    return base;
}

void write(httplib::Response &response, const AccountApi::Response &answer)
{
    response.status = answer.status;
    for (const auto &header : answer.headers) {
        response.set_header(header.first.toStdString(), header.second.toStdString());
    }
    response.set_content(answer.body.toStdString(), "application/json");
}

AccountApi::Response failure(int status, const QString &message)
{
    AccountApi::Response answer;
    answer.status = status;
    answer.body =
        QJsonDocument(QJsonObject{{QStringLiteral("error"), message}}).toJson(QJsonDocument::Compact);
    return answer;
}

// One HTTP server on a thread of its own: the account service's, or that of a played service.
struct Listener
{
    // Binds @p wanted (0: a free port) on @p address and starts serving.
    bool start(std::unique_ptr<httplib::Server> bound, const QString &address, int wanted)
    {
        const std::string host = address.toStdString();
        port = wanted == 0 ? bound->bind_to_any_port(host)
                           : (wanted <= 65535 && bound->bind_to_port(host, wanted) ? wanted : -1);
        if (port <= 0) {
            qCWarning(lcDevService, "Cannot listen on %s port %d", qPrintable(address), wanted);
            return false;
        }
        server = std::move(bound);
        localAddress = isWildcard(address) ? std::string() : host;
        httplib::Server *running = server.get();
        thread = std::thread([running] { running->listen_after_bind(); });
        // stop() only reaches a server whose loop runs.
        const QDeadlineTimer deadline(10000);
        while (!running->is_running() && !deadline.hasExpired()) {
            std::this_thread::yield();
        }
        return true;
    }

    void stop()
    {
        if (!server) {
            return;
        }
        server->stop();
        // Workers wait on idle keep-alive connections for seconds; ending them lets the pool stop now.
        SocketControl::shutDownConnections(localAddress, port);
        if (thread.joinable()) {
            thread.join();
        }
        server.reset();
    }

    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    std::string localAddress; // empty for a wildcard address
    int port = 0;
};

struct PlayedListener
{
    PlayedService service;
    Listener listener;
};

} // namespace

class DevServicePrivate
{
public:
    void configure(httplib::Server &server, size_t workers);
    void serve(const httplib::Request &request, httplib::Response &response);
    void serveAdmin(const httplib::Request &request, httplib::Response &response);
    void servePlayed(const PlayedService &service, const httplib::Request &request,
                     httplib::Response &response);
    bool startPlayedServices(const Scenario &scenario, const QString &listenAddress);
    void stopPlayedServices();
    QHash<QString, QUrl> playedResourceUrls() const;
    void record(const httplib::Request &request, const QString &service = QString());
    std::optional<Fault> takeFault(const QByteArray &method, const QString &path);
    bool relativePath(const std::string &path, QString *relative) const;
    void pause(int milliseconds) const;

    AccountApi api;

    // Start, stop and a new scenario; never held while a request is served.
    mutable QMutex lifecycleMutex;
    Listener account;
    std::vector<std::unique_ptr<PlayedListener>> played;
    std::atomic<bool> stopping{false};

    // Everything the serving threads read and write.
    mutable QMutex mutex;
    QString basePath;
    QString address;
    quint16 port = 0;
    quint16 servicesPort = 0;
    bool listening = false;
    // By service name, while they listen.
    QHash<QString, QUrl> playedUrls;
    qint64 maximumBodySize = DevService::DefaultMaximumBodySize;
    int journalLimit = DevService::DefaultJournalLimit;
    QList<Fault> faults;
    QList<DevService::ReceivedRequest> journal;
};

void DevServicePrivate::configure(httplib::Server &server, size_t workers)
{
    // cpp-httplib takes ownership of the queue it gets from this factory and deletes it.
    server.new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
    server.set_keep_alive_max_count(KeepAliveRequests);
    // The HTTP layer's default lets a listener share a port that is taken (SO_REUSEPORT), and the
    // system would split the connections between the two: the account service and its played
    // services on one port, or two services started with the same ports. A port in use must fail
    // to bind instead; SO_REUSEADDR alone still allows a quick restart on the same port.
    server.set_socket_options([](socket_t socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    });
    // Headers and body leave in separate writes; without this, each answer waits for the client's
    // delayed acknowledgement.
    server.set_tcp_nodelay(true);
    {
        QMutexLocker locker(&mutex);
        server.set_payload_max_length(size_t(maximumBodySize));
    }
    server.set_pre_routing_handler([](const httplib::Request &request, httplib::Response &response) {
        currentRequest.timer.start();
        currentRequest.started = true;
        currentRequest.dropped = false;
        // The HTTP layer holds a body to the size limit only when its Content-Length announces
        // it: a chunked body would be read into memory however large it grows. No client of this
        // service sends one. An answer alone would leave the unread chunks on the connection, to be
        // parsed (and logged) as further requests, so the connection is ended unread instead.
        if (request.has_header("Transfer-Encoding")) {
            currentRequest.dropped = true;
            SocketControl::shutDownConnection(request.local_addr, request.local_port, request.remote_addr,
                                              request.remote_port);
            response.status = 411;
            return httplib::Server::HandlerResponse::Handled;
        }
        // Qt writes a request's headers and body separately and leaves Nagle's algorithm on: the
        // body waits for the acknowledgement of the headers, which the kernel would delay by up to
        // 40 ms. Acknowledging at once keeps a POST as quick as a GET.
        if (request.get_header_value_count("Content-Length") > 0 &&
            request.get_header_value("Content-Length") != "0") {
            SocketControl::acknowledgeNow(request.local_addr, request.local_port, request.remote_addr,
                                          request.remote_port);
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    // One line per request, also for those that never reach a handler (413, malformed requests).
    // Method, path and status only: headers, queries and bodies carry credentials.
    server.set_logger([](const httplib::Request &request, const httplib::Response &response) {
        const qint64 elapsed = currentRequest.started ? currentRequest.timer.elapsed() : 0;
        currentRequest.started = false;
        const QByteArray path = QByteArray::fromStdString(request.path).left(MaximumLoggedPathLength);
        // A request line that did not parse leaves its first word as the method: on a connection
        // whose framing went wrong that word is a piece of some body, possibly a credential.
        const char *const method = isKnownMethod(request.method) ? request.method.c_str() : "-";
        if (currentRequest.dropped) {
            qCInfo(lcDevServiceRequest, "%s %s dropped %lld ms", method, path.constData(), elapsed);
        } else {
            qCInfo(lcDevServiceRequest, "%s %s %d %lld ms", method, path.constData(), response.status,
                   elapsed);
        }
        currentRequest.dropped = false;
    });
}

// Every method reaches the handler, which answers those it does not serve with 405.
template<typename Handler>
void route(httplib::Server &server, const Handler &handler)
{
    server.Get(".*", handler);
    server.Post(".*", handler);
    server.Put(".*", handler);
    server.Patch(".*", handler);
    server.Delete(".*", handler);
    server.Options(".*", handler);
}

bool DevServicePrivate::startPlayedServices(const Scenario &scenario, const QString &listenAddress)
{
    int nextPort = 0;
    {
        QMutexLocker locker(&mutex);
        nextPort = servicesPort;
    }
    for (const Scenario::Resource &resource : scenario.resources()) {
        if (!resource.isPlayedService()) {
            continue;
        }
        auto playing =
            std::make_unique<PlayedListener>(PlayedListener{PlayedService(resource, scenario), {}});
        auto server = std::make_unique<httplib::Server>();
        configure(*server, PlayedServiceWorkerThreads);
        const PlayedService *service = &playing->service;
        route(*server, [this, service](const httplib::Request &request, httplib::Response &response) {
            servePlayed(*service, request, response);
        });
        if (!playing->listener.start(std::move(server), listenAddress, nextPort)) {
            return false;
        }
        nextPort = nextPort == 0 ? 0 : nextPort + 1;
        const QUrl url = urlOf(listenAddress, quint16(playing->listener.port), QString());
        qCInfo(lcDevService, "Playing the service %s on %s", qPrintable(service->name()),
               qPrintable(url.toString()));
        QMutexLocker locker(&mutex);
        playedUrls.insert(service->name(), url);
        played.push_back(std::move(playing));
    }
    return true;
}

void DevServicePrivate::stopPlayedServices()
{
    {
        QMutexLocker locker(&mutex);
        playedUrls.clear();
    }
    for (const auto &playing : played) {
        playing->listener.stop();
    }
    played.clear();
}

QHash<QString, QUrl> DevServicePrivate::playedResourceUrls() const
{
    QHash<QString, QUrl> urls;
    QMutexLocker locker(&mutex);
    for (const auto &playing : played) {
        urls.insert(playing->service.resourceId(), playedUrls.value(playing->service.name()));
    }
    return urls;
}

bool DevServicePrivate::relativePath(const std::string &path, QString *relative) const
{
    const QString full = QString::fromStdString(path);
    QMutexLocker locker(&mutex);
    if (!full.startsWith(basePath + QLatin1Char('/'))) {
        return false;
    }
    *relative = full.mid(basePath.size() + 1);
    return true;
}

void DevServicePrivate::record(const httplib::Request &request, const QString &service)
{
    DevService::ReceivedRequest received;
    received.service = service;
    received.method = QByteArray::fromStdString(request.method);
    received.path = QByteArray::fromStdString(request.path);
    const auto question = request.target.find('?');
    if (question != std::string::npos) {
        received.query = QByteArray::fromStdString(request.target.substr(question + 1));
    }
    for (const auto &[name, value] : request.headers) {
        received.headers.insert(QByteArray::fromStdString(name).toLower(), QByteArray::fromStdString(value));
    }
    received.body = QByteArray::fromStdString(request.body);
    QMutexLocker locker(&mutex);
    journal.append(received);
    while (journal.size() > journalLimit) {
        journal.removeFirst();
    }
}

std::optional<Fault> DevServicePrivate::takeFault(const QByteArray &method, const QString &path)
{
    QMutexLocker locker(&mutex);
    for (auto it = faults.begin(); it != faults.end(); ++it) {
        if (it->matches(method, path)) {
            const Fault fault = *it;
            if (--it->count <= 0) {
                faults.erase(it);
            }
            return fault;
        }
    }
    return std::nullopt;
}

void DevServicePrivate::pause(int milliseconds) const
{
    // In short steps, so that stopping the service does not wait for a long delay to pass.
    const QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired() && !stopping) {
        QThread::msleep(quint64(qBound<qint64>(1, deadline.remainingTime(), 20)));
    }
}

void DevServicePrivate::serve(const httplib::Request &request, httplib::Response &response)
{
    record(request);
    QString path;
    if (!relativePath(request.path, &path)) {
        write(response, failure(404, QStringLiteral("not found")));
        return;
    }
    if (path == QLatin1String("admin/faults")) {
        serveAdmin(request, response);
        return;
    }

    const QByteArray method = QByteArray::fromStdString(request.method);
    const std::optional<Fault> fault = takeFault(method, path);
    if (fault && fault->delay > 0) {
        pause(fault->delay);
    }
    if (fault && fault->dropConnection) {
        currentRequest.dropped = true;
        SocketControl::shutDownConnection(request.local_addr, request.local_port, request.remote_addr,
                                          request.remote_port);
        response.status = 500;
        return;
    }

    AccountApi::Response answer;
    if (fault && fault->status != 0) {
        answer = failure(fault->status, QStringLiteral("injected fault"));
    } else {
        answer =
            api.handle({method, path, QByteArray::fromStdString(request.get_header_value("Authorization")),
                        QByteArray::fromStdString(request.body)});
    }
    if (fault && fault->malformedBody) {
        answer.body = MalformedBody;
    } else if (fault && !fault->body.isEmpty()) {
        answer.body = fault->body;
    }
    write(response, answer);
}

void DevServicePrivate::servePlayed(const PlayedService &service, const httplib::Request &request,
                                    httplib::Response &response)
{
    record(request, service.name());
    write(
        response,
        service.handle({QByteArray::fromStdString(request.method), QString::fromStdString(request.path),
                        QByteArray::fromStdString(request.get_header_value("Authorization")), QByteArray()}));
}

void DevServicePrivate::serveAdmin(const httplib::Request &request, httplib::Response &response)
{
    if (!isLoopback(request.remote_addr)) {
        write(response, failure(403, QStringLiteral("the admin interface answers loopback peers only")));
        return;
    }
    auto list = [this] {
        QJsonArray pending;
        QMutexLocker locker(&mutex);
        for (const Fault &fault : qAsConst(faults)) {
            pending.append(fault.toJson());
        }
        return pending;
    };
    auto answer = [&](int status) {
        AccountApi::Response listed;
        listed.status = status;
        listed.body = QJsonDocument(list()).toJson(QJsonDocument::Compact);
        write(response, listed);
    };

    if (request.method == "GET") {
        answer(200);
    } else if (request.method == "DELETE") {
        QMutexLocker locker(&mutex);
        faults.clear();
        locker.unlock();
        answer(200);
    } else if (request.method == "POST") {
        QJsonParseError error;
        const QJsonDocument document =
            QJsonDocument::fromJson(QByteArray::fromStdString(request.body), &error);
        const QJsonArray entries = document.isArray() ? document.array() : QJsonArray{document.object()};
        if (error.error != QJsonParseError::NoError || (!document.isArray() && !document.isObject())) {
            write(response,
                  failure(400, QStringLiteral("the body must be a fault object or an array of them")));
            return;
        }
        QList<Fault> added;
        for (const QJsonValue &entry : entries) {
            QString message;
            const Fault fault = Fault::fromJson(entry.toObject(), &message);
            if (!fault.isValid()) {
                write(response, failure(400, message));
                return;
            }
            added.append(fault);
        }
        QMutexLocker locker(&mutex);
        faults.append(added);
        locker.unlock();
        answer(201);
    } else {
        AccountApi::Response refused = failure(405, QStringLiteral("method not allowed"));
        refused.headers.append({QByteArrayLiteral("Allow"), QByteArrayLiteral("GET, POST, DELETE")});
        write(response, refused);
    }
}

DevService::DevService()
    : DevService(Scenario::demo())
{}

DevService::DevService(const Scenario &scenario)
    : d(std::make_unique<DevServicePrivate>())
{
    if (!d->api.setScenario(scenario)) {
        d->api.setScenario(Scenario::demo());
    }
}

DevService::~DevService()
{
    stop();
}

bool DevService::setScenario(const Scenario &scenario)
{
    if (!scenario.isValid()) {
        return false;
    }
    QMutexLocker lifecycle(&d->lifecycleMutex);
    const bool listening = d->account.server != nullptr;
    const QString listenAddress = address();
    const Scenario previous = d->api.scenario();
    // The played services' own ports may be pinned: those of the scenario before go first.
    d->stopPlayedServices();
    if ((!listening || d->startPlayedServices(scenario, listenAddress)) &&
        d->api.setScenario(scenario, d->playedResourceUrls())) {
        return true;
    }
    d->stopPlayedServices();
    if (listening && d->startPlayedServices(previous, listenAddress)) {
        d->api.setPlayedServiceUrls(d->playedResourceUrls());
    }
    return false;
}

Scenario DevService::scenario() const
{
    return d->api.scenario();
}

void DevService::setBasePath(const QString &path)
{
    QMutexLocker locker(&d->mutex);
    d->basePath = normalisedBase(path);
}

QString DevService::basePath() const
{
    QMutexLocker locker(&d->mutex);
    return d->basePath;
}

void DevService::setTokenLifetime(int seconds)
{
    d->api.setTokenLifetime(seconds);
}

int DevService::tokenLifetime() const
{
    return d->api.tokenLifetime();
}

void DevService::setServiceTokenLifetime(int seconds)
{
    d->api.setServiceTokenLifetime(seconds);
}

int DevService::serviceTokenLifetime() const
{
    return d->api.serviceTokenLifetime();
}

void DevService::setChallengeLifetime(int milliseconds)
{
    d->api.setChallengeLifetime(milliseconds);
}

int DevService::challengeLifetime() const
{
    return d->api.challengeLifetime();
}

void DevService::setMaximumBodySize(qint64 bytes)
{
    QMutexLocker locker(&d->mutex);
    d->maximumBodySize = bytes;
}

qint64 DevService::maximumBodySize() const
{
    QMutexLocker locker(&d->mutex);
    return d->maximumBodySize;
}

void DevService::setJournalLimit(int requests)
{
    QMutexLocker locker(&d->mutex);
    d->journalLimit = qMax(0, requests);
    while (d->journal.size() > d->journalLimit) {
        d->journal.removeFirst();
    }
}

void DevService::setServicesPort(quint16 firstPort)
{
    QMutexLocker locker(&d->mutex);
    d->servicesPort = firstPort;
}

quint16 DevService::servicesPort() const
{
    QMutexLocker locker(&d->mutex);
    return d->servicesPort;
}

bool DevService::listen(const QString &address, quint16 port)
{
    QMutexLocker lifecycle(&d->lifecycleMutex);
    if (d->account.server) {
        return false;
    }
    d->stopping = false;
    // The played services first, their URLs signed into their records, so that the account
    // service hands out nothing but records that name listening services.
    if (!d->startPlayedServices(d->api.scenario(), address) ||
        (!d->played.empty() && !d->api.setPlayedServiceUrls(d->playedResourceUrls()))) {
        d->stopPlayedServices();
        return false;
    }
    auto server = std::make_unique<httplib::Server>();
    d->configure(*server, WorkerThreads);
    route(*server, [this](const httplib::Request &request, httplib::Response &response) {
        d->serve(request, response);
    });
    if (!d->account.start(std::move(server), address, port)) {
        d->stopPlayedServices();
        return false;
    }
    {
        QMutexLocker locker(&d->mutex);
        d->address = address;
        d->port = quint16(d->account.port);
        d->listening = true;
    }
    d->api.setIssuer(serviceUrlText(url()));
    qCInfo(lcDevService, "Serving on %s", qPrintable(url().toString()));
    return true;
}

void DevService::stop()
{
    QMutexLocker lifecycle(&d->lifecycleMutex);
    if (!d->account.server) {
        return;
    }
    d->stopping = true;
    {
        QMutexLocker locker(&d->mutex);
        d->listening = false;
    }
    d->account.stop();
    d->stopPlayedServices();
}

bool DevService::isListening() const
{
    QMutexLocker locker(&d->mutex);
    return d->listening;
}

QString DevService::address() const
{
    QMutexLocker locker(&d->mutex);
    return d->address;
}

quint16 DevService::port() const
{
    QMutexLocker locker(&d->mutex);
    return d->port;
}

QUrl DevService::url() const
{
    QMutexLocker locker(&d->mutex);
    return urlOf(d->address, d->port, d->basePath);
}

QUrl DevService::playedServiceUrl(const QString &name) const
{
    QMutexLocker locker(&d->mutex);
    return d->playedUrls.value(name);
}

QJsonObject DevService::configuration() const
{
    const QJsonObject configuration{
        {QStringLiteral("rootIdentity"), DevelopmentKeys::rootIdentity()},
        {QStringLiteral("serviceUrl"), serviceUrlText(url())},
    };
    return crypto::JsonSignature::sign(configuration, DevelopmentKeys::configurationKey());
}

bool DevService::writeConfiguration(const QString &path, QString *errorMessage) const
{
    // The account library reads at most this many bytes of a configuration.
    constexpr int MaximumConfigurationSize = 4096;
    auto fail = [&](const QString &message) {
        if (errorMessage) {
            *errorMessage = message;
        }
        return false;
    };
    const QJsonObject signedConfiguration = configuration();
    if (signedConfiguration.isEmpty()) {
        return fail(QStringLiteral("cannot sign the configuration with the development key"));
    }
    const QByteArray text = QJsonDocument(signedConfiguration).toJson(QJsonDocument::Indented);
    if (text.size() >= MaximumConfigurationSize) {
        return fail(QStringLiteral("the configuration is larger than the client reads"));
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
        return fail(path + QLatin1String(": ") + file.errorString());
    }
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                        QFileDevice::ReadOther);
    if (!file.commit()) {
        return fail(path + QLatin1String(": ") + file.errorString());
    }
    return true;
}

QJsonArray DevService::identityChain() const
{
    return d->api.identityChain();
}

QJsonArray DevService::logins() const
{
    return d->api.logins();
}

void DevService::addFault(const Fault &fault)
{
    if (!fault.isValid()) {
        return;
    }
    Fault added = fault;
    if (added.path.startsWith(QLatin1Char('/'))) {
        added.path.remove(0, 1);
    }
    added.method = added.method.toUpper();
    QMutexLocker locker(&d->mutex);
    d->faults.append(added);
}

void DevService::clearFaults()
{
    QMutexLocker locker(&d->mutex);
    d->faults.clear();
}

QList<Fault> DevService::faults() const
{
    QMutexLocker locker(&d->mutex);
    return d->faults;
}

QList<DevService::ReceivedRequest> DevService::journal() const
{
    QMutexLocker locker(&d->mutex);
    return d->journal;
}

void DevService::clearJournal()
{
    QMutexLocker locker(&d->mutex);
    d->journal.clear();
}

} // namespace vn::devservice
