#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QByteArray>
#include <QMetaType>
#include <QString>

#include <memory>

class QJsonObject;

namespace vn::account {

/// A bearer token as the account service hands it out, in its compact text form.
///
/// The token is opaque here: it is never decoded and its expiry is never judged. Copies share one
/// immutable string with atomic reference counts, so tokens may be copied and dropped on any thread.
class VANTROACCOUNT_EXPORT AccessToken
{
public:
    AccessToken();
    explicit AccessToken(const QString &token);
    /// Reads the member "token" of a service answer; anything but a string gives an empty token.
    explicit AccessToken(const QJsonObject &object);
    AccessToken(const AccessToken &other);
    AccessToken &operator=(const AccessToken &other);
    virtual ~AccessToken();

    /// True when the token text is non-empty.
    bool isValid() const;

    /// The token text in Latin-1: what the profile stores and what the bearer authorization sends.
    operator QByteArray() const;

private:
    // Never null, so that a copied or default token always has text to read. No move operations
    // are declared on purpose: a moved-from token would otherwise be left without its string.
    std::shared_ptr<const QString> m_token;
};

} // namespace vn::account

Q_DECLARE_METATYPE(vn::account::AccessToken)
