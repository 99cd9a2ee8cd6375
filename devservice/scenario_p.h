#pragma once

#include "scenario.h"

#include <QSharedData>

namespace vn::devservice {

class ScenarioData : public QSharedData
{
public:
    bool valid = false;
    QList<Scenario::User> users;
    QList<Scenario::Device> devices;
    QList<Scenario::Identity> identities;
    QList<Scenario::Resource> resources;
    crypto::PrivateKey tokenKey;
};

/// Reads a scenario document into @p data; false, with the member at fault and why in @p error,
/// when it does not read. Relative key file names are taken from @p baseDirectory.
bool readScenario(const QJsonObject &document, const QString &baseDirectory, ScenarioData *data,
                  QString *error);

} // namespace vn::devservice
