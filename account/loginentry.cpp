#include "loginentry_p.h"

#include "account.h"

#include <Vantro/deleterequest.h>

namespace vn::account {

void LoginEntry::startDelete()
{
    if (deleteRequest) {
        return;
    }
    const Account account;
    deleteRequest = account.deleteRequest(QUrl(QStringLiteral("logins/") + id, QUrl::TolerantMode));
    deleteRequest->setSuppressErrors(true);
    deletePending = true;
    connect(deleteRequest, &Request::finished, this, &LoginEntry::handleDeleteResponse);
}

void LoginEntry::handleDeleteResponse()
{
    deletePending = false;
    Q_EMIT deleted(deleteRequest->responseCode() == 200);
    deleteRequest = nullptr;
}

} // namespace vn::account
