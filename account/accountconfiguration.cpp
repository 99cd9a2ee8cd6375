#include "accountconfiguration.h"

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/publickey.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>

// Q_INIT_RESOURCE has to name the resource from the global namespace. Registering the built-in
// trust data explicitly keeps it reachable wherever the library's object code ends up (a static
// build drops resource objects that nothing references).
static void initTrustResources()
{
    Q_INIT_RESOURCE(vantroaccount_trust);
}

namespace vn::account {

namespace {

const char defaultConfigurationPath[] = ":/account/config/default.json";
const char configurationKeyPath[] = ":/account/keys/accountconfig.pub";

// A configuration is a few hundred bytes of JSON; anything beyond this is not one.
constexpr qint64 maximumConfigurationSize = 4096;

void ensureTrustResources()
{
    static const bool registered = (initTrustResources(), true);
    Q_UNUSED(registered)
}

} // namespace

bool AccountConfiguration::s_initialized = false;
QJsonObject AccountConfiguration::s_rootIdentity;
QUrl AccountConfiguration::s_serviceUrl;

QUrl AccountConfiguration::serviceUrl()
{
    loadConfiguration();
    return s_serviceUrl;
}

QJsonObject AccountConfiguration::rootIdentity()
{
    loadConfiguration();
    return s_rootIdentity;
}

void AccountConfiguration::loadConfiguration()
{
    if (s_initialized) {
        return;
    }
    ensureTrustResources();

    QString path = QString::fromLatin1(defaultConfigurationPath);
    const QByteArray overridePath = qgetenv("VANTRO_ACCOUNT_CONFIG");
    if (!overridePath.isEmpty()) {
        path = QString::fromLocal8Bit(overridePath);
    }

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("Account configuration \"%s\" does not exist", path.toLocal8Bit().constData());
    }

    // One read of at most the ceiling: a longer file is cut and then fails to parse.
    const QByteArray content = file.read(maximumConfigurationSize);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(content, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        qFatal("Invalid account configuration: %s", parseError.errorString().toLocal8Bit().constData());
    }

    // Always the built-in key, also for a file named by the environment: whoever can set the
    // environment must not be able to name their own root of trust.
    const QJsonObject configuration = document.object();
    const crypto::PublicKey key(QString::fromLatin1(configurationKeyPath));
    if (!crypto::JsonSignature::verify(configuration, key)) {
        qFatal("Invalid account configuration - aborting");
    }

    s_rootIdentity = configuration.value(QLatin1String("rootIdentity")).toObject();

    // Service paths are resolved relative to this URL and must land below it.
    QString url = configuration.value(QLatin1String("serviceUrl")).toString();
    if (!url.endsWith(QLatin1Char('/'))) {
        url.append(QLatin1Char('/'));
    }
    s_serviceUrl = QUrl(url);

    bool isInteger = false;
    const int cache = qEnvironmentVariableIntValue("VANTRO_CACHE_ACCOUNT_CONFIG", &isInteger);
    s_initialized = !(isInteger && cache == 0);
}

} // namespace vn::account
