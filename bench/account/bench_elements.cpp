// The elements of the user interface at scale, each against its floor in the same run:
//
// - a change of the consumer's permissions re-evaluates 1,000 live Permission elements, against
//   1,000 direct Consumer::hasPermission calls (goal: within 2x);
// - LoginListModel rebuilt from a list of 1,000 logins, old rows deleted included, against the JSON
//   parse of that body alone (goal: within 1.5x).
//
// The account is restored signed in from a profile written here; nothing goes to the network.
//
//   bench_elements [--rounds N, default 200]

#include "autotest_p.h"
#include "benchsupport.h"

#include <VantroAccount/accesstoken.h>
#include <VantroAccount/account.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/loginlistmodel.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/profile.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QUuid>

#include <memory>
#include <vector>

using namespace vn::account;

namespace {

constexpr int Count = 1000;

QJsonObject consumerRecord(const QJsonArray &permissions)
{
    return QJsonObject{{QStringLiteral("id"), QStringLiteral("c0a80121-7ac0-4e1c-9d2f-000000000001")},
                       {QStringLiteral("name"), QStringLiteral("Ada Example")},
                       {QStringLiteral("email"), QStringLiteral("ada@example.net")},
                       {QStringLiteral("permissions"), permissions},
                       {QStringLiteral("roles"), QJsonArray{QStringLiteral("author")}}};
}

// The logins as the service lists them, with every member it sends.
QByteArray loginList()
{
    QJsonArray logins;
    const QDateTime start = QDateTime::fromString(QStringLiteral("2024-03-01T10:00:00Z"), Qt::ISODate);
    for (int login = 0; login < Count; ++login) {
        logins.append(QJsonObject{
            {QStringLiteral("id"), QUuid::createUuid().toString(QUuid::WithoutBraces)},
            {QStringLiteral("hostInfo"), QStringLiteral("workstation-%1.example.net (Linux)").arg(login)},
            {QStringLiteral("since"), start.addSecs(login * 60).toString(Qt::ISODate)},
            {QStringLiteral("persistent"), login % 2 == 0},
            {QStringLiteral("authType"), QStringLiteral("credentials")},
            {QStringLiteral("user"), QStringLiteral("ada@example.net")},
            {QStringLiteral("expires"), start.addDays(1).addSecs(login * 60).toString(Qt::ISODate)}});
    }
    return QJsonDocument(logins).toJson(QJsonDocument::Compact);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QTemporaryDir location;
    if (!location.isValid()) {
        bench::fail("elements", "no temporary folder");
    }
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(location.path()));
    const int rounds = bench::option(argc, argv, "--rounds", 200);

    // Signed in from the profile, with a consumer whose permissions the service changes.
    Profile &profile = Account::profile();
    const QJsonArray granted{0x23, 0x4f, 0x11, 0x20001};
    const QJsonArray changed{0x21, 0x4f, 0x13, 0x20001};
    if (!profile.write(QStringLiteral("accessToken"), AccessToken(QStringLiteral("bench-token"))) ||
        !profile.write(QStringLiteral("consumerInfo"), consumerRecord(granted))) {
        bench::fail("elements", "the profile does not write");
    }
    Account account;
    Consumer *consumer = account.consumer();
    if (!consumer) {
        bench::fail("elements", "the account did not restore its consumer");
    }

    const Permission::PermissionFlags asked[] = {Permission::ReadPermission | Permission::ConsumerType,
                                                 Permission::ModifyPermission | Permission::ConsumerType,
                                                 Permission::DeletePermission | Permission::ResourceType,
                                                 Permission::Journal | Permission::ReadPermission,
                                                 Permission::CreatePermission | Permission::AccountType};
    std::vector<std::unique_ptr<Permission>> elements;
    for (int element = 0; element < Count; ++element) {
        elements.push_back(std::make_unique<Permission>());
        elements.back()->setRequire(asked[element % 5]);
    }
    const QJsonObject records[] = {consumerRecord(changed), consumerRecord(granted)};
    int next = 0;
    bench::compare("permission elements",
                   {"1,000 Permission after a permissions change",
                    [&] {
                        consumer->update(records[next]);
                        next = 1 - next;
                        bench::sink += elements.front()->present();
                    }},
                   {"1,000 Consumer::hasPermission",
                    [&] {
                        for (int element = 0; element < Count; ++element) {
                            bench::sink += consumer->hasPermission(asked[element % 5]);
                        }
                    }},
                   {rounds, 1, 10}, 2.0);

    const QByteArray body = loginList();
    LoginListModel model;
    LoginListModelPrivate *rows = LoginListModelPrivate::get(&model);
    bench::compare("login list",
                   {"LoginListModel rebuilt from 1,000 logins",
                    [&] {
                        rows->rebuild(QJsonDocument::fromJson(body).array());
                        // The replaced rows go on the event loop; their deletion is part of the cost.
                        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                        bench::sink += model.rowCount();
                    }},
                   {"QJsonDocument::fromJson of the body",
                    [&] { bench::sink += QJsonDocument::fromJson(body).array().size(); }},
                   {rounds, 1, 10}, 1.5);
    if (model.rowCount() != Count) {
        bench::fail("elements", "the model did not list every login");
    }
    return 0;
}
