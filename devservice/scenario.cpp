#include "scenario_p.h"

#include "developmentkeys.h"
#include "logging_p.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace vn::devservice {

namespace {

constexpr qint64 MaximumScenarioSize = 4 * 1024 * 1024;

} // namespace

Scenario::Scenario()
    : d(new ScenarioData)
{}

Scenario::Scenario(const Scenario &other) = default;
Scenario &Scenario::operator=(const Scenario &other) = default;
Scenario::~Scenario() = default;

Scenario Scenario::demo()
{
    // The demo's key files are compiled in; reading them is quick, so the demo is read per call.
    DevelopmentKeys::configurationKey(); // registers the built-in resources
    QString error;
    Scenario scenario = fromFile(QStringLiteral(":/vantro-devservice/demo/scenario.json"), &error);
    if (!scenario.isValid()) {
        qCCritical(lcDevService, "The built-in demo scenario is unusable: %s", qPrintable(error));
    }
    return scenario;
}

Scenario Scenario::fromFile(const QString &path, QString *errorMessage)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (errorMessage) {
            *errorMessage = path + QLatin1String(": ") + file.errorString();
        }
        return Scenario();
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.read(MaximumScenarioSize), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        if (errorMessage) {
            *errorMessage = path + QLatin1String(": not a JSON object (") +
                            (parseError.error != QJsonParseError::NoError ? parseError.errorString()
                                                                          : QStringLiteral("wrong type")) +
                            QLatin1Char(')');
        }
        return Scenario();
    }
    return fromJson(document.object(), QFileInfo(path).absolutePath(), errorMessage);
}

Scenario Scenario::fromJson(const QJsonObject &document, const QString &baseDirectory, QString *errorMessage)
{
    Scenario scenario;
    QString error;
    if (!readScenario(document, baseDirectory, scenario.d.data(), &error)) {
        if (errorMessage) {
            *errorMessage = error;
        }
        return Scenario();
    }
    scenario.d->valid = true;
    return scenario;
}

bool Scenario::isValid() const
{
    return d->valid;
}

QList<Scenario::User> Scenario::users() const
{
    return d->users;
}

QList<Scenario::Device> Scenario::devices() const
{
    return d->devices;
}

QList<Scenario::Identity> Scenario::identities() const
{
    return d->identities;
}

QList<Scenario::Resource> Scenario::resources() const
{
    return d->resources;
}

bool Scenario::Resource::isPlayedService() const
{
    const QJsonValue payload = record.value(QLatin1String("payload"));
    return record.value(QLatin1String("type")).toString() == QLatin1String("vantro.resource.Service") &&
           payload.isObject() && payload.toObject().value(QLatin1String("url")).toString().isEmpty();
}

QString Scenario::Resource::serviceName() const
{
    return record.value(QLatin1String("payload")).toObject().value(QLatin1String("service")).toString();
}

crypto::PrivateKey Scenario::tokenKey() const
{
    return d->tokenKey;
}

} // namespace vn::devservice
