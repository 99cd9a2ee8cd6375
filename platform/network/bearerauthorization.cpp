#include "bearerauthorization.h"
#include "networklogging_p.h"

#include <QNetworkRequest>

#include <algorithm>

namespace vn::network {

namespace {

// A control character would end the header line early and let the rest of the token pass as
// headers of its own.
bool isSafeHeaderValue(const QByteArray &value)
{
    return std::none_of(value.cbegin(), value.cend(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f;
    });
}

} // namespace

BearerAuthorization::BearerAuthorization(const QStringList &hosts, const QByteArray &token)
    : Authorization(hosts)
    , m_token(token)
{
    if (!isSafeHeaderValue(m_token)) {
        qCWarning(lcNetwork) << "Bearer token for" << hosts
                             << "contains control characters; it is never sent";
        m_token.clear();
    }
}

BearerAuthorization::~BearerAuthorization() = default;

void BearerAuthorization::authorize(QNetworkRequest &request, const QByteArray &, const QByteArray &) const
{
    if (m_token.isEmpty()) {
        return;
    }
    request.setRawHeader(QByteArrayLiteral("Authorization"), QByteArrayLiteral("Bearer ") + m_token);
}

} // namespace vn::network
