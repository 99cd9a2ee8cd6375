#pragma once

#include "demoscenario.h"

#include <devservice.h>

#include <VantroAccount/account.h>

#include <QQmlNetworkAccessManagerFactory>
#include <QSet>
#include <QTemporaryDir>

#include <memory>

// The development service in-process for the account tests, and the steps they all take.
struct AccountFixture
{
    /// What a sign-out leaves in the profile.
    static const QSet<QString> ClientIdentity;
    /// A fault status that drops the connection instead (Qt then sends the request once more).
    static constexpr int Dropped = -1;
    /// A fault status that serves the request with a body that is not JSON.
    static constexpr int Malformed = -2;

    /// Serves the demo below @p basePath on a free port for the account configuration, runs the
    /// account's schedule @p timeScale times as fast and clears the profile but the client's identity.
    bool start(double timeScale, const QString &basePath = QString());
    /// Logs in as Ada and waits until the refresh has brought consumer, identity and resources.
    static bool connect(vn::account::Account &account, bool persistent);
    /// Disconnected with nothing left: no data, no token, no profile entry but the client's identity.
    static bool isSignedOut(const vn::account::Account &account);
    static QSet<QString> profileEntries();
    /// The next @p count requests to "api/v1/" + @p path get @p status (0 serves them).
    void addFault(const QString &path, const QByteArray &method, int status, int count = 1);
    /// How many received requests with @p method have a path ending in @p pathEnd.
    int countRequests(const QByteArray &method, const QByteArray &pathEnd) const;
    /// Managers for a QML engine that send what goes to the password-reset address, which is fixed
    /// when the library is built, to this service instead, as an application's proxy would.
    std::unique_ptr<QQmlNetworkAccessManagerFactory> resetRedirect() const;

    vn::devservice::DevService service;
    QTemporaryDir folder;
};
