#include "accountconfiguration.h"

#include "developmentkeys.h"

#include <VantroCrypto/jsonsignature.h>

#include <QJsonDocument>
#include <QSaveFile>

namespace vn::devservice {

QString AccountConfiguration::serviceUrlText(const QUrl &serviceUrl)
{
    QString text = serviceUrl.toString();
    while (text.endsWith(QLatin1Char('/'))) {
        text.chop(1);
    }
    return text;
}

QJsonObject AccountConfiguration::forService(const QUrl &serviceUrl)
{
    const QJsonObject configuration{
        {QStringLiteral("rootIdentity"), DevelopmentKeys::rootIdentity()},
        {QStringLiteral("serviceUrl"), serviceUrlText(serviceUrl)},
    };
    return crypto::JsonSignature::sign(configuration, DevelopmentKeys::configurationKey());
}

bool AccountConfiguration::write(const QJsonObject &configuration, const QString &path, QString *errorMessage)
{
    // The account library reads at most this many bytes of a configuration.
    constexpr int MaximumConfigurationSize = 4096;
    auto fail = [&](const QString &message) {
        if (errorMessage) {
            *errorMessage = message;
        }
        return false;
    };
    if (configuration.isEmpty()) {
        return fail(QStringLiteral("cannot sign the configuration with the development key"));
    }
    const QByteArray text = QJsonDocument(configuration).toJson(QJsonDocument::Indented);
    if (text.size() >= MaximumConfigurationSize) {
        return fail(QStringLiteral("the configuration is larger than the client reads"));
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
        return fail(path + QLatin1String(": ") + file.errorString());
    }
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                        QFileDevice::ReadOther);
    if (!file.commit()) {
        return fail(path + QLatin1String(": ") + file.errorString());
    }
    return true;
}

} // namespace vn::devservice
