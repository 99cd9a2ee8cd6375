#pragma once

#include "apiresponse.h"
#include "apisettings.h"
#include "scenario.h"

#include <QHash>
#include <QJsonArray>
#include <QString>
#include <QUrl>

#include <memory>

namespace vn::devservice {

class AccountApiPrivate;

/// The account service's API below "api/v1/", free of any HTTP plumbing: it takes a request's
/// method, path, bearer credential and body and gives the status and JSON body to answer with.
///
/// It keeps the live logins and pending challenges of the current scenario. Every operation is
/// safe to call from several threads at once; signing and encryption run outside its locks.
class AccountApi
{
public:
    using Request = ApiRequest;
    using Response = ApiResponse;

    AccountApi();
    ~AccountApi();

    /// Signs the scenario's identity chain and resources and makes it current. Every login and
    /// challenge of the scenario before is forgotten. False, with nothing changed, for an invalid
    /// scenario. A played service's record gets its URL from @p playedUrls (by resource id) before
    /// it is signed.
    bool setScenario(const Scenario &scenario, const QHash<QString, QUrl> &playedUrls = {});
    Scenario scenario() const;
    /// Signs the current scenario's records again, with these URLs of its played services (by
    /// resource id); logins and challenges stay.
    bool setPlayedServiceUrls(const QHash<QString, QUrl> &playedUrls);

    /// The "iss" claim of the tokens it issues: the service's own URL.
    void setIssuer(const QString &issuer);
    void setSettings(const ApiSettings &settings);
    ApiSettings settings() const;

    /// The signed account identity records, from the root's child to the account's own identity.
    QJsonArray identityChain() const;
    /// The session records of every live login, oldest first.
    QJsonArray logins() const;

    ApiResponse handle(const ApiRequest &request);

private:
    Q_DISABLE_COPY(AccountApi)
    std::unique_ptr<AccountApiPrivate> const d;
};

} // namespace vn::devservice
