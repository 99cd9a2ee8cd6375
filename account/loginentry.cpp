#include "loginentry_p.h"

#include "account.h"

#include <Vantro/deleterequest.h>

namespace vn::account {

QDateTime LoginEntry::since() const
{
    if (!m_sinceRead) {
        m_since = QDateTime::fromString(record.value(QLatin1String("since")).toString(), Qt::ISODate);
        m_sinceRead = true;
    }
    return m_since;
}

QString LoginEntry::hostInfo() const
{
    return record.value(QLatin1String("hostInfo")).toString();
}

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
    const bool success = deleteRequest->responseCode() == 200;
    deleteRequest = nullptr;
    Q_EMIT deleted(success);
}

} // namespace vn::account
