#include "devservice.h"

#include "accountapi.h"
#include "accountconfiguration.h"
#include "faultinjector.h"
#include "httplistener.h"
#include "logging_p.h"
#include "playedservice.h"

#include <QMutex>

#include <httplib.h>

namespace vn::devservice {

namespace {

// Connections are served by a pool of threads, each holding one connection for as long as the
// client keeps it alive: enough of them that several clients with several connections each are
// served at once.
constexpr size_t WorkerThreads = 32;
// A played service answers a demo's few requests.
constexpr size_t PlayedServiceWorkerThreads = 4;

QUrl urlOf(const QString &address, quint16 port, const QString &path)
{
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(address.isEmpty() || HttpListener::isWildcard(address) ? QStringLiteral("127.0.0.1")
                                                                       : address);
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

struct PlayedListener
{
    explicit PlayedListener(PlayedService played)
        : service(std::move(played))
    {}

    PlayedService service;
    HttpListener listener;
};

} // namespace

class DevServicePrivate
{
public:
    void serve(const httplib::Request &request, httplib::Response &response);
    void servePlayed(const PlayedService &service, const httplib::Request &request,
                     httplib::Response &response);
    bool startPlayedServices(const Scenario &scenario, const QString &listenAddress);
    void stopPlayedServices();
    QHash<QString, QUrl> playedResourceUrls() const;
    bool relativePath(const std::string &path, QString *relative) const;

    AccountApi api;
    FaultInjector faults;
    RequestJournal journal;

    // Start, stop and a new scenario; never held while a request is served.
    mutable QMutex lifecycleMutex;
    HttpListener account;
    std::vector<std::unique_ptr<PlayedListener>> played;

    // What the serving threads read.
    mutable QMutex mutex;
    QString basePath;
    QString address;
    quint16 port = 0;
    quint16 servicesPort = 0;
    bool listening = false;
    qint64 maximumBodySize = DevService::DefaultMaximumBodySize;
    // By service name, while they listen.
    QHash<QString, QUrl> playedUrls;
};

bool DevServicePrivate::startPlayedServices(const Scenario &scenario, const QString &listenAddress)
{
    QMutexLocker locker(&mutex);
    int nextPort = servicesPort;
    const qint64 bodyLimit = maximumBodySize;
    locker.unlock();
    for (const Scenario::Resource &resource : scenario.resources()) {
        if (!resource.isPlayedService()) {
            continue;
        }
        auto playing = std::make_unique<PlayedListener>(PlayedService(resource, scenario));
        const PlayedService *service = &playing->service;
        const auto handler = [this, service](const httplib::Request &request, httplib::Response &response) {
            servePlayed(*service, request, response);
        };
        if (!playing->listener.start(listenAddress, nextPort, PlayedServiceWorkerThreads, bodyLimit,
                                     handler)) {
            return false;
        }
        nextPort = nextPort == 0 ? 0 : nextPort + 1;
        const QUrl url = urlOf(listenAddress, quint16(playing->listener.port()), QString());
        qCInfo(lcDevService, "Playing the service %s on %s", qPrintable(service->name()),
               qPrintable(url.toString()));
        locker.relock();
        playedUrls.insert(service->name(), url);
        locker.unlock();
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

void DevServicePrivate::serve(const httplib::Request &request, httplib::Response &response)
{
    journal.record(request);
    QString path;
    if (!relativePath(request.path, &path)) {
        HttpListener::write(response, ApiResponse::error(404, QStringLiteral("not found")));
        return;
    }
    const QByteArray method = QByteArray::fromStdString(request.method);
    const QByteArray body = QByteArray::fromStdString(request.body);
    if (path == QLatin1String("admin/faults")) {
        HttpListener::write(response, faults.serveAdmin(method, body, request.remote_addr));
        return;
    }
    const auto serve = [&] {
        return api.handle(
            {method, path, QByteArray::fromStdString(request.get_header_value("Authorization")), body});
    };
    const std::optional<Fault> fault = faults.take(method, path);
    if (!fault) {
        HttpListener::write(response, serve());
        return;
    }
    faults.wait(*fault);
    if (fault->dropConnection) {
        HttpListener::dropConnection(request, response);
        return;
    }
    const ApiResponse answer = FaultInjector::answer(*fault, serve);
    if (fault->truncateBody) {
        HttpListener::writeTruncated(response, answer);
    } else {
        HttpListener::write(response, answer);
    }
}

void DevServicePrivate::servePlayed(const PlayedService &service, const httplib::Request &request,
                                    httplib::Response &response)
{
    journal.record(request, service.name());
    HttpListener::write(
        response,
        service.handle({QByteArray::fromStdString(request.method), QString::fromStdString(request.path),
                        QByteArray::fromStdString(request.get_header_value("Authorization")), QByteArray()}));
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
    const bool listening = d->account.isServing();
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

void DevService::setSettings(const ApiSettings &settings)
{
    d->api.setSettings(settings);
}

ApiSettings DevService::settings() const
{
    return d->api.settings();
}

void DevService::setTokenLifetime(int seconds)
{
    ApiSettings changed = settings();
    changed.tokenLifetime = seconds;
    setSettings(changed);
}

void DevService::setServiceTokenLifetime(int seconds)
{
    ApiSettings changed = settings();
    changed.serviceTokenLifetime = seconds;
    setSettings(changed);
}

void DevService::setChallengeLifetime(int milliseconds)
{
    ApiSettings changed = settings();
    changed.challengeLifetime = milliseconds;
    setSettings(changed);
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

void DevService::setMaximumBodySize(qint64 bytes)
{
    QMutexLocker locker(&d->mutex);
    d->maximumBodySize = bytes;
}

void DevService::setServicesPort(quint16 firstPort)
{
    QMutexLocker locker(&d->mutex);
    d->servicesPort = firstPort;
}

bool DevService::listen(const QString &address, quint16 port)
{
    QMutexLocker lifecycle(&d->lifecycleMutex);
    if (d->account.isServing()) {
        return false;
    }
    d->faults.resume();
    // The played services first, their URLs signed into their records, so that the account
    // service hands out nothing but records that name listening services.
    const auto handler = [this](const httplib::Request &request, httplib::Response &response) {
        d->serve(request, response);
    };
    QMutexLocker locker(&d->mutex);
    const qint64 bodyLimit = d->maximumBodySize;
    locker.unlock();
    if (!d->startPlayedServices(d->api.scenario(), address) ||
        (!d->played.empty() && !d->api.setPlayedServiceUrls(d->playedResourceUrls())) ||
        !d->account.start(address, port, WorkerThreads, bodyLimit, handler)) {
        d->stopPlayedServices();
        return false;
    }
    locker.relock();
    d->address = address;
    d->port = quint16(d->account.port());
    d->listening = true;
    locker.unlock();
    d->api.setIssuer(AccountConfiguration::serviceUrlText(url()));
    qCInfo(lcDevService, "Serving on %s", qPrintable(url().toString()));
    return true;
}

void DevService::stop()
{
    QMutexLocker lifecycle(&d->lifecycleMutex);
    if (!d->account.isServing()) {
        return;
    }
    d->faults.interrupt();
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
    return AccountConfiguration::forService(url());
}

bool DevService::writeConfiguration(const QString &path, QString *errorMessage) const
{
    return AccountConfiguration::write(configuration(), path, errorMessage);
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
    d->faults.add(fault);
}

void DevService::clearFaults()
{
    d->faults.clear();
}

QList<Fault> DevService::faults() const
{
    return d->faults.pending();
}

QList<RecordedRequest> DevService::journal() const
{
    return d->journal.requests();
}

void DevService::clearJournal()
{
    d->journal.clear();
}

void DevService::setJournalLimit(int requests)
{
    d->journal.setLimit(requests);
}

} // namespace vn::devservice
