#pragma once

#include "apiresponse.h"
#include "scenario.h"

#include <QByteArray>
#include <QHash>
#include <QString>

namespace vn::devservice {

/// One of the scenario's services that the development service plays itself, free of any HTTP
/// plumbing: it answers a GET or HEAD of any path for a bearer that is a service token for this
/// service (RS256 signature by the scenario's token key, "aud" naming the service, "exp" still
/// ahead) with who called, and anything else with 401 or 405.
///
/// Immutable once made, so that the threads of its listener share it without a lock; it keeps what
/// it needs of its scenario, whatever scenario the account service moves on to.
class PlayedService
{
public:
    PlayedService(const Scenario::Resource &resource, const Scenario &scenario);

    QString name() const { return m_name; }
    QString resourceId() const { return m_resourceId; }

    /// @p request's path is the full path of the request.
    ApiResponse handle(const ApiRequest &request) const;

private:
    QString m_name;
    QString m_resourceId;
    /// PEM of the token key's public half: each check reads a key of its own, as key values record
    /// the outcome of their last operation.
    QByteArray m_tokenKey;
    /// Consumer names by consumer id, the "sub" of a service token.
    QHash<QString, QString> m_consumerNames;
};

} // namespace vn::devservice
