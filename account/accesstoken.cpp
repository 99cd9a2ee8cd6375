#include "accesstoken.h"

#include <QJsonObject>
#include <QJsonValue>

namespace vn::account {

AccessToken::AccessToken()
    : m_token(std::make_shared<const QString>())
{}

AccessToken::AccessToken(const QString &token)
    : m_token(std::make_shared<const QString>(token))
{}

AccessToken::AccessToken(const QJsonObject &object)
    : m_token(std::make_shared<const QString>(object.value(QLatin1String("token")).toString()))
{}

AccessToken::AccessToken(const AccessToken &other) = default;

AccessToken &AccessToken::operator=(const AccessToken &other) = default;

AccessToken::~AccessToken() = default;

bool AccessToken::isValid() const
{
    return !m_token->isEmpty();
}

AccessToken::operator QByteArray() const
{
    return m_token->toLatin1();
}

} // namespace vn::account
