// A stand-in application: includes the installed headers the way applications do and calls into
// every exported library, so that missing symbols or headers show up as a failed build or run. With
// the QML import folder of the install as its argument it also imports Vantro.Account from there,
// as a QML application does.
#include <Vantro/getrequest.h>
#include <Vantro/locations.h>
#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>
#include <VantroAccount/vantroaccount_version.h>
#include <VantroCrypto/jsoncanonical.h>
#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/networkaccessmanager.h>
#include <VantroUtil/fileutils.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QQmlComponent>
#include <QQmlEngine>

#include <memory>

#include <cstdio>

static_assert(VANTROACCOUNT_VERSION >= VANTROACCOUNT_MAKE_VERSION(0, 1, 0), "the installed version header");

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    // The account restores itself from the profile below VANTRO_PROFILE_LOCATION: never signed in
    // there, it is disconnected, with a client identity of its own that the profile keeps.
    vn::account::Account account;
    if (vn::crypto::JsonCanonical::serialize(
            QJsonObject{{QStringLiteral("b"), 1}, {QStringLiteral("a"), 2}}) != "{\"a\":2,\"b\":1}" ||
        vn::util::FileUtils::syncFile(QString()) || !vn::network::AuthorizationRegistry::instance() ||
        !vn::network::NetworkAccessManager::sharedInstance() ||
        account.status() != vn::account::Account::Disconnected || account.clientId().size() != 32 ||
        vn::account::Account::profile().readString(QStringLiteral("clientId")) != account.clientId()) {
        std::fprintf(stderr, "unexpected state: account status %d\n", int(account.status()));
        return 1;
    }
    if (argc > 1) {
        QQmlEngine engine;
        engine.addImportPath(QString::fromLocal8Bit(argv[1]));
        QQmlComponent component(&engine);
        component.setData("import Vantro.Account 1.0\n"
                          "Account { property bool gated: permission.present\n"
                          "          property Permission permission: Permission {\n"
                          "              require: Permission.ReadPermission | Permission.ConsumerType } }",
                          QUrl());
        const std::unique_ptr<QObject> fromQml(component.create());
        if (!fromQml) {
            std::fprintf(stderr, "QML: %s\n", qPrintable(component.errorString()));
            return 1;
        }
        if (fromQml->property("status").toInt() != vn::account::Account::Disconnected ||
            fromQml->property("gated").toBool()) {
            std::fprintf(stderr, "unexpected account state in QML\n");
            return 1;
        }
        std::printf("imported Vantro.Account from %s\n", argv[1]);
    }
    std::printf("profiles under %s\n", qPrintable(vn::Locations::profileLocation().path()));
    return 0;
}
