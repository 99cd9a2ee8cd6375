#pragma once

#include "resource_p.h"

#include "accesstoken.h"
#include "jsonwebtoken_p.h"
#include "service.h"

#include <Vantro/getrequest.h>
#include <VantroNetwork/authorizationregistry.h>

#include <QBasicTimer>
#include <QDeadlineTimer>
#include <QPointer>

namespace vn::account {

class ServicePrivate : public ResourcePrivate
{
    Q_DECLARE_PUBLIC(Service)

public:
    /// Milliseconds between two looks at the token while enabled.
    static constexpr int TickInterval = 5000;
    /// How long a valid token is left alone before it is looked at again.
    static constexpr qint64 CheckDelay = 60000;
    /// A token with fewer seconds than this left is renewed.
    static constexpr qint64 RenewalMargin = 300;
    static constexpr qint64 FirstRetryDelay = 5000;
    static constexpr qint64 MaximumRetryDelay = 900000;

    explicit ServicePrivate(Service *owner)
        : ResourcePrivate(owner)
    {}

    void requestToken();
    void setStatus(Service::Status newStatus);
    /// The wait after a failed attempt when @p failures attempts failed before it: 5 s, doubled
    /// with each, at most 15 min.
    static constexpr qint64 retryDelay(int failures)
    {
        return qMin(FirstRetryDelay << qMin(failures, 8), MaximumRetryDelay);
    }
    /// Nothing is checked or attempted for @p milliseconds (on the account's time scale).
    void scheduleNext(qint64 milliseconds);
    /// After a failed attempt: the next one after retryDelay(), one failure more counted.
    void retryLater();
    /// Whether the token held is a token that has not run out.
    bool holdsUsableToken() const;
    void registerToken();

    QUrl url;
    QString name;
    Service::Status status = Service::Disabled;
    AccessToken token;
    /// What token says of itself; checked on receipt and at every tick.
    JsonWebToken claims;
    int retryCount = 0;
    QBasicTimer timer;
    QDeadlineTimer deadline{0, Qt::CoarseTimer};
    /// The token request in flight. A request whose answer could not be parsed stays counted as
    /// in flight (requestPending) after the request layer has disposed of it, which stops further
    /// attempts until the service is disabled and enabled again; the guarded pointer makes
    /// disconnecting such a request harmless.
    QPointer<vn::GetRequest> tokenRequest;
    bool requestPending = false;
    network::AuthorizationHandle authorization;
};

} // namespace vn::account
