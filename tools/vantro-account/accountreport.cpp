#include "accountreport.h"

#include <VantroAccount/account.h>
#include <VantroAccount/accountidentity.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/profile.h>
#include <VantroAccount/resource.h>
#include <VantroAccount/service.h>
#include <VantroAccount/session.h>

#include <QDateTime>
#include <QJsonDocument>
#include <QMap>
#include <QMetaEnum>

namespace vn::tools {

using vn::account::Account;
using vn::account::Permission;

namespace {

// Payload members whose names contain one of these (in any case) are never printed. Credential
// resources keep their secrets under "credentials"; the other words catch secrets that a payload
// of another or future type might carry, at any depth.
const QLatin1String SecretNameParts[] = {QLatin1String("credential"), QLatin1String("password"),
                                         QLatin1String("passphrase"), QLatin1String("secret"),
                                         QLatin1String("token"),      QLatin1String("key")};

bool isSecretName(const QString &name)
{
    for (const QLatin1String &part : SecretNameParts) {
        if (name.contains(part, Qt::CaseInsensitive)) {
            return true;
        }
    }
    return false;
}

QJsonValue filterPayload(const QJsonValue &value, const QString &path, QStringList *withheld)
{
    if (value.isArray()) {
        QJsonArray filtered;
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i) {
            filtered.append(filterPayload(array.at(i), path + QStringLiteral("[%1]").arg(i), withheld));
        }
        return filtered;
    }
    if (!value.isObject()) {
        return value;
    }
    QJsonObject filtered;
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString memberPath = path.isEmpty() ? it.key() : path + QLatin1Char('.') + it.key();
        if (isSecretName(it.key())) {
            withheld->append(memberPath);
        } else {
            filtered.insert(it.key(), filterPayload(it.value(), memberPath, withheld));
        }
    }
    return filtered;
}

QString statusName(Account::Status status)
{
    const char *key = QMetaEnum::fromType<Account::Status>().valueToKey(status);
    return key ? QString::fromLatin1(key) : QString::number(int(status));
}

QJsonObject consumerObject(const vn::account::Consumer &consumer)
{
    QJsonArray permissions;
    for (const int permission : consumer.permissions()) {
        permissions.append(
            QJsonObject{{QStringLiteral("value"), permission},
                        {QStringLiteral("flags"),
                         QJsonArray::fromStringList(AccountReport::permissionNames(permission))}});
    }
    return {{QStringLiteral("id"), consumer.identifier()},
            {QStringLiteral("name"), consumer.name()},
            {QStringLiteral("email"), consumer.email()},
            {QStringLiteral("permissions"), permissions},
            {QStringLiteral("roles"), QJsonArray::fromStringList(consumer.roles())}};
}

QJsonObject identityObject(const vn::account::AccountIdentity &identity)
{
    // From the root down to the account's own identity, as a person reads a chain of trust.
    QJsonArray chain;
    for (const vn::account::Identity *link = &identity; link; link = link->parent()) {
        chain.prepend(
            QJsonObject{{QStringLiteral("id"), link->uuid()}, {QStringLiteral("name"), link->name()}});
    }
    return {{QStringLiteral("id"), identity.uuid()},
            {QStringLiteral("name"), identity.name()},
            {QStringLiteral("verified"), identity.verifyChain()},
            {QStringLiteral("chain"), chain}};
}

/// "Label:" padded so that the values of a report line up.
QString line(const QString &label, const QString &value)
{
    const QString head = label.isEmpty() ? QString() : label + QLatin1Char(':');
    return head.leftJustified(14) + value + QLatin1Char('\n');
}

QString compact(const QJsonValue &value)
{
    if (value.isString()) {
        return value.toString();
    }
    if (value.isObject()) {
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    }
    if (value.isArray()) {
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    }
    // Numbers, booleans and null: the JSON text of a one-element array, without its brackets.
    const QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.mid(1, text.size() - 2));
}

} // namespace

QJsonObject AccountReport::status(Account &account)
{
    QJsonObject report{{QStringLiteral("profile"), Account::profile().name()},
                       {QStringLiteral("status"), statusName(account.status())},
                       {QStringLiteral("signedIn"), account.status() == Account::Connected},
                       {QStringLiteral("online"), account.isOnline()},
                       {QStringLiteral("clientId"), account.clientId()},
                       {QStringLiteral("serviceUrl"), account.serviceUrl().toString(QUrl::RemoveUserInfo)}};

    const vn::account::Session *session = account.session();
    report.insert(
        QStringLiteral("session"),
        session ? QJsonValue(QJsonObject{{QStringLiteral("id"), session->identifier()},
                                         {QStringLiteral("hostInfo"), session->hostInfo()},
                                         {QStringLiteral("since"), session->since().toString(Qt::ISODate)}})
                : QJsonValue());
    const vn::account::Consumer *consumer = account.consumer();
    report.insert(QStringLiteral("consumer"),
                  consumer ? QJsonValue(consumerObject(*consumer)) : QJsonValue());
    const vn::account::AccountIdentity *identity = account.identity();
    report.insert(QStringLiteral("identity"),
                  identity ? QJsonValue(identityObject(*identity)) : QJsonValue());

    QJsonObject counts;
    for (const vn::account::Resource *resource : account.resourceList()) {
        counts.insert(resource->type(), counts.value(resource->type()).toInt() + 1);
    }
    report.insert(QStringLiteral("resources"), counts);
    return report;
}

QJsonArray AccountReport::resources(Account &account)
{
    QJsonArray list;
    for (const vn::account::Resource *resource : account.resourceList()) {
        QStringList withheld;
        const QJsonValue payload = publicPayload(resource->payload(), &withheld);
        list.append(QJsonObject{{QStringLiteral("type"), resource->type()},
                                {QStringLiteral("id"), resource->uuid()},
                                {QStringLiteral("owner"), resource->owner()},
                                {QStringLiteral("priority"), resource->priority()},
                                {QStringLiteral("valid"), resource->isValid()},
                                {QStringLiteral("payload"), payload},
                                {QStringLiteral("withheld"), QJsonArray::fromStringList(withheld)}});
    }
    return list;
}

QJsonArray AccountReport::services(Account &account)
{
    static const char *const StatusNames[] = {"disabled", "pending", "ready"};
    QJsonArray list;
    for (const vn::account::Resource *resource :
         account.findResources(QStringLiteral("vantro.resource.Service"))) {
        const auto *service = qobject_cast<const vn::account::Service *>(resource);
        if (!service) {
            continue;
        }
        list.append(QJsonObject{{QStringLiteral("name"), service->name()},
                                {QStringLiteral("url"), service->url().toString(QUrl::RemoveUserInfo)},
                                {QStringLiteral("id"), service->uuid()},
                                {QStringLiteral("status"), QLatin1String(StatusNames[service->status()])}});
    }
    return list;
}

QJsonArray AccountReport::logins(const QJsonArray &serviceLogins, const QString &currentLoginId)
{
    QJsonArray list;
    for (const QJsonValue &value : serviceLogins) {
        const QJsonObject login = value.toObject();
        const QString id = login.value(QLatin1String("id")).toString();
        list.append(
            QJsonObject{{QStringLiteral("id"), id},
                        {QStringLiteral("since"), login.value(QLatin1String("since")).toString()},
                        {QStringLiteral("hostInfo"), login.value(QLatin1String("hostInfo")).toString()},
                        {QStringLiteral("current"), !currentLoginId.isEmpty() && id == currentLoginId}});
    }
    return list;
}

QString AccountReport::statusText(const QJsonObject &status)
{
    const auto text = [&status](const char *key) { return status.value(QLatin1String(key)).toString(); };
    QString state = text("status");
    if (status.value(QLatin1String("signedIn")).toBool()) {
        state += status.value(QLatin1String("online")).toBool() ? QStringLiteral(", online")
                                                                : QStringLiteral(", offline");
    }
    QString report = line(QStringLiteral("Profile"), text("profile")) +
                     line(QStringLiteral("Status"), state) +
                     line(QStringLiteral("Client id"), text("clientId")) +
                     line(QStringLiteral("Service URL"), text("serviceUrl"));

    const QJsonObject session = status.value(QLatin1String("session")).toObject();
    if (!session.isEmpty()) {
        report +=
            line(QStringLiteral("Session"), QStringLiteral("%1, since %2, from %3")
                                                .arg(session.value(QLatin1String("id")).toString(),
                                                     session.value(QLatin1String("since")).toString(),
                                                     session.value(QLatin1String("hostInfo")).toString()));
    }

    const QJsonObject consumer = status.value(QLatin1String("consumer")).toObject();
    if (!consumer.isEmpty()) {
        report += line(QStringLiteral("Consumer"), QStringLiteral("%1 <%2>, id %3")
                                                       .arg(consumer.value(QLatin1String("name")).toString(),
                                                            consumer.value(QLatin1String("email")).toString(),
                                                            consumer.value(QLatin1String("id")).toString()));
        QString label = QStringLiteral("Permissions");
        const QJsonArray permissions = consumer.value(QLatin1String("permissions")).toArray();
        for (const QJsonValue &permission : permissions) {
            QStringList flags;
            for (const QJsonValue &flag : permission.toObject().value(QLatin1String("flags")).toArray()) {
                flags.append(flag.toString());
            }
            report += line(label, flags.join(QLatin1Char('|')));
            label = QString();
        }
        if (permissions.isEmpty()) {
            report += line(label, QStringLiteral("none"));
        }
        QStringList roles;
        for (const QJsonValue &role : consumer.value(QLatin1String("roles")).toArray()) {
            roles.append(role.toString());
        }
        report += line(QStringLiteral("Roles"),
                       roles.isEmpty() ? QStringLiteral("none") : roles.join(QStringLiteral(", ")));
    }

    // Signed out, the profile holds nothing more to show.
    if (!status.value(QLatin1String("signedIn")).toBool()) {
        return report;
    }

    const QJsonObject identity = status.value(QLatin1String("identity")).toObject();
    if (identity.isEmpty()) {
        report += line(QStringLiteral("Identity"), QStringLiteral("none"));
    } else {
        QStringList chain;
        for (const QJsonValue &link : identity.value(QLatin1String("chain")).toArray()) {
            chain.append(link.toObject().value(QLatin1String("name")).toString());
        }
        report += line(QStringLiteral("Identity"), QStringLiteral("%1; the chain %2 %3")
                                                       .arg(identity.value(QLatin1String("name")).toString(),
                                                            chain.join(QStringLiteral(" > ")),
                                                            identity.value(QLatin1String("verified")).toBool()
                                                                ? QStringLiteral("verifies")
                                                                : QStringLiteral("does NOT verify")));
    }

    const QJsonObject counts = status.value(QLatin1String("resources")).toObject();
    int total = 0;
    QStringList byType;
    for (auto it = counts.begin(); it != counts.end(); ++it) {
        total += it.value().toInt();
        byType.append(QStringLiteral("%1 %2").arg(it.value().toInt()).arg(it.key()));
    }
    report +=
        line(QStringLiteral("Resources"),
             byType.isEmpty() ? QStringLiteral("none")
                              : QStringLiteral("%1 (%2)").arg(total).arg(byType.join(QStringLiteral(", "))));
    return report;
}

QString AccountReport::resourcesText(const QJsonArray &resources)
{
    QString report;
    for (const QJsonValue &value : resources) {
        const QJsonObject resource = value.toObject();
        report += QStringLiteral("%1 %2\n    owner %3, priority %4, %5\n")
                      .arg(resource.value(QLatin1String("type")).toString(),
                           resource.value(QLatin1String("id")).toString(),
                           resource.value(QLatin1String("owner")).toString())
                      .arg(resource.value(QLatin1String("priority")).toInt())
                      .arg(resource.value(QLatin1String("valid")).toBool() ? QStringLiteral("valid")
                                                                           : QStringLiteral("NOT valid"));
        const QJsonValue payload = resource.value(QLatin1String("payload"));
        if (payload.isObject()) {
            const QJsonObject members = payload.toObject();
            for (auto it = members.begin(); it != members.end(); ++it) {
                report += QStringLiteral("    %1: %2\n").arg(it.key(), compact(it.value()));
            }
        } else if (!payload.isUndefined() && !payload.isNull()) {
            report += QStringLiteral("    payload: %1\n").arg(compact(payload));
        }
        QStringList withheld;
        for (const QJsonValue &name : resource.value(QLatin1String("withheld")).toArray()) {
            withheld.append(name.toString());
        }
        if (!withheld.isEmpty()) {
            report += QStringLiteral("    not shown (secret): %1\n").arg(withheld.join(QStringLiteral(", ")));
        }
    }
    return report.isEmpty() ? QStringLiteral("No resources.\n") : report;
}

QString AccountReport::servicesText(const QJsonArray &services)
{
    QString report;
    for (const QJsonValue &value : services) {
        const QJsonObject service = value.toObject();
        report += QStringLiteral("%1 %2 (%3)\n    id %4\n")
                      .arg(service.value(QLatin1String("name")).toString(),
                           service.value(QLatin1String("url")).toString(),
                           service.value(QLatin1String("status")).toString(),
                           service.value(QLatin1String("id")).toString());
    }
    return report.isEmpty() ? QStringLiteral("No services.\n") : report;
}

QString AccountReport::loginsText(const QJsonArray &logins)
{
    QString report;
    bool anyCurrent = false;
    for (const QJsonValue &value : logins) {
        const QJsonObject login = value.toObject();
        const bool current = login.value(QLatin1String("current")).toBool();
        anyCurrent = anyCurrent || current;
        report += QStringLiteral("%1 %2  since %3  from %4\n")
                      .arg(current ? QLatin1Char('*') : QLatin1Char(' '))
                      .arg(login.value(QLatin1String("id")).toString(),
                           login.value(QLatin1String("since")).toString(),
                           login.value(QLatin1String("hostInfo")).toString());
    }
    if (anyCurrent) {
        report += QStringLiteral("(* this client's login)\n");
    }
    return report.isEmpty() ? QStringLiteral("No logins.\n") : report;
}

QStringList AccountReport::permissionNames(int permission)
{
    const QMetaEnum flags = QMetaEnum::fromType<Permission::PermissionFlags>();
    QStringList names;
    quint32 unnamed = quint32(permission);
    for (int bit = 0; bit < 32; ++bit) {
        const quint32 value = 1u << bit;
        if (!(quint32(permission) & value)) {
            continue;
        }
        if (const char *key = flags.valueToKey(int(value))) {
            names.append(QString::fromLatin1(key));
            unnamed &= ~value;
        }
    }
    if (unnamed) {
        names.append(QStringLiteral("0x%1").arg(unnamed, 0, 16));
    }
    return names;
}

QJsonValue AccountReport::publicPayload(const QJsonValue &payload, QStringList *withheld)
{
    return filterPayload(payload, QString(), withheld);
}

} // namespace vn::tools
