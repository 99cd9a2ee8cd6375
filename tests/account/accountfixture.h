#pragma once

#include <devservice.h>

#include <VantroAccount/account.h>

#include <QSet>
#include <QString>
#include <QTemporaryDir>

// The development service in-process for the account tests, and the steps they all take.
struct AccountFixture
{
    static const QString Ada;
    static const QString AdaPassword;
    /// What a sign-out leaves in the profile.
    static const QSet<QString> ClientIdentity;
    /// A fault status that drops the connection instead.
    static constexpr int Dropped = -1;

    /// Serves the demo scenario below @p basePath on a free port, points the account configuration
    /// at it and runs the account's schedule @p timeScale times as fast. Clears the profile but for
    /// the client's identity, whose key is slow to make.
    bool start(double timeScale, const QString &basePath = QString());

    /// Logs in; the error the account reported once it is no longer connecting.
    static vn::account::Account::Error login(vn::account::Account &account, bool persistent = true,
                                             const QString &userName = Ada,
                                             const QString &password = AdaPassword);
    /// Logs in as Ada and waits until the refresh has brought consumer, identity and resources.
    static bool connect(vn::account::Account &account, bool persistent = true);
    static bool logout(vn::account::Account &account);
    static QSet<QString> profileEntries();

    /// The next request (two, for a dropped connection: Qt sends once more) to "api/v1/" + @p path
    /// gets @p status, after @p delay milliseconds; status 0 serves it.
    void addFault(const QString &path, const QByteArray &method, int status, int delay = 0);
    /// How many received requests with @p method have a path ending in @p pathEnd.
    int countRequests(const QByteArray &method, const QByteArray &pathEnd) const;

    vn::devservice::DevService service;
    QTemporaryDir folder;
};
