#pragma once

#include <QJsonObject>
#include <QString>
#include <QUrl>

namespace vn::devservice {

/// The account configuration that points the account library at a development service: what
/// VANTRO_ACCOUNT_CONFIG names.
class AccountConfiguration
{
public:
    AccountConfiguration() = delete;

    /// The service URL as configurations and tokens name it: without a trailing "/".
    static QString serviceUrlText(const QUrl &serviceUrl);

    /// "serviceUrl" and the development root identity, signed with the development configuration
    /// key (which the library's built-in configuration key verifies); empty when it cannot sign.
    static QJsonObject forService(const QUrl &serviceUrl);

    /// Writes @p configuration to @p path with mode 0644 (it holds no secret); false, with the
    /// reason in @p errorMessage, when it cannot or when the library would not read it whole.
    static bool write(const QJsonObject &configuration, const QString &path, QString *errorMessage = nullptr);
};

} // namespace vn::devservice
