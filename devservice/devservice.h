#pragma once

#include "apisettings.h"
#include "fault.h"
#include "requestjournal.h"
#include "scenario.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>

#include <memory>

namespace vn::devservice {

class DevServicePrivate;

/// The development account service: a real HTTP service that answers every request of the account
/// library below "<base>/api/v1/", with the users, keys, identities and resources of a scenario.
/// It also plays the scenario's services that name no URL, each on a loopback origin of its own,
/// so that a service token can be seen at work (see playedServiceUrl()).
///
/// listen() starts it on threads of its own; every operation is safe to call from any thread while
/// it serves. Tests start it on port 0, configure it, inject faults and read back the requests it
/// received; the vantro-account-devservice program serves the demo scenario on 127.0.0.1:8421.
class DevService
{
public:
    using ReceivedRequest = RecordedRequest;

    static constexpr quint16 DefaultPort = 8421;
    /// Larger request bodies are refused with 413.
    static constexpr qint64 DefaultMaximumBodySize = 1024 * 1024;
    /// How many received requests the journal keeps; older ones are dropped.
    static constexpr int DefaultJournalLimit = RequestJournal::DefaultLimit;
    // The defaults of settings(), named here too for the callers that know only this class.
    static constexpr int DefaultTokenLifetime = ApiSettings::DefaultTokenLifetime;
    static constexpr int DefaultServiceTokenLifetime = ApiSettings::DefaultServiceTokenLifetime;
    static constexpr int DefaultChallengeLifetime = ApiSettings::DefaultChallengeLifetime;

    /// A service with the built-in demo scenario.
    DevService();
    /// A service with @p scenario (the demo if it is not valid).
    explicit DevService(const Scenario &scenario);
    ~DevService();

    /// Replaces the scenario; every login and challenge is forgotten, and while it listens the
    /// played services of the scenario before give way to those of this one. False, with the
    /// scenario unchanged, for an invalid scenario or when a played service cannot be bound.
    bool setScenario(const Scenario &scenario);
    Scenario scenario() const;

    /// The lifetimes of tokens and challenges; a change applies to what is issued from then on.
    void setSettings(const ApiSettings &settings);
    ApiSettings settings() const;
    /// Shorthands that change one member of settings().
    void setTokenLifetime(int seconds);
    void setServiceTokenLifetime(int seconds);
    void setChallengeLifetime(int milliseconds);

    /// The path below which the service answers, for example "/base" for a service URL
    /// http://127.0.0.1:8421/base. Set before listen().
    void setBasePath(const QString &path);
    QString basePath() const;
    /// Set before listen().
    void setMaximumBodySize(qint64 bytes);
    /// The port of the first played service, the next one on the next port and so on; 0 (the
    /// default) lets the system pick a free port for each. Set before listen().
    void setServicesPort(quint16 firstPort);

    /// Starts serving on @p address and @p port (0 lets the system pick one), and the played
    /// services on the same address, with their URLs signed into their records. False when an
    /// address cannot be bound or the service already listens.
    bool listen(const QString &address = QStringLiteral("127.0.0.1"), quint16 port = DefaultPort);
    /// Stops serving, the played services too: ends open connections and waits for the threads.
    void stop();
    bool isListening() const;
    QString address() const;
    quint16 port() const;
    /// http://address:port/base; a wildcard listen address is given as 127.0.0.1.
    QUrl url() const;
    /// http://address:port/ of the played service named @p name (the "service" of its resource);
    /// empty when no such service is played or the service does not listen.
    QUrl playedServiceUrl(const QString &name) const;

    /// An account configuration naming url() and the development root identity, signed with the
    /// development configuration key.
    QJsonObject configuration() const;
    /// Writes configuration() to @p path (mode 0644; it holds no secret).
    bool writeConfiguration(const QString &path, QString *errorMessage = nullptr) const;

    /// The signed identity records it serves, from the root's child to the account's own identity.
    QJsonArray identityChain() const;
    /// The session records of every live login, oldest first.
    QJsonArray logins() const;

    /// The fault applies to the next fault.count matching requests. Invalid faults are ignored.
    void addFault(const Fault &fault);
    void clearFaults();
    /// The faults still pending, with their remaining counts.
    QList<Fault> faults() const;

    /// The requests of the account service and the played services together, oldest first.
    QList<RecordedRequest> journal() const;
    void clearJournal();
    void setJournalLimit(int requests);

private:
    Q_DISABLE_COPY(DevService)
    std::unique_ptr<DevServicePrivate> const d;
};

} // namespace vn::devservice
