#include "basicauthorization.h"
#include "networklogging_p.h"

#include <QNetworkRequest>

namespace vn::network {

BasicAuthorization::BasicAuthorization(const QStringList &hosts, const QString &userName,
                                       const QString &password)
    : Authorization(hosts)
{
    if (userName.contains(QLatin1Char(':'))) {
        // The server splits at the first colon, so it will see a different user and password.
        qCWarning(lcNetwork) << "Basic authorization for" << hosts << "has a user name with a colon";
    }
    // The header never changes, so it is encoded once. RFC 7617's charset="UTF-8" is the only
    // encoding it allows to announce, and what servers assume today.
    const QByteArray userPass = userName.toUtf8() + ':' + password.toUtf8();
    m_header = QByteArrayLiteral("Basic ") + userPass.toBase64();
}

BasicAuthorization::~BasicAuthorization() = default;

void BasicAuthorization::authorize(QNetworkRequest &request, const QByteArray &, const QByteArray &) const
{
    request.setRawHeader(QByteArrayLiteral("Authorization"), m_header);
}

} // namespace vn::network
