// The QML module Vantro.Account: registers the account library's types and nothing else, so that
// QML sees exactly what C++ sees.

#include "databasecredentials.h"

#include <VantroAccount/abstractauthenticator.h>
#include <VantroAccount/account.h>
#include <VantroAccount/accountidentity.h>
#include <VantroAccount/challengeresponseauthenticator.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/database.h>
#include <VantroAccount/identity.h>
#include <VantroAccount/loginlistmodel.h>
#include <VantroAccount/passwordreset.h>
#include <VantroAccount/permission.h>
#include <VantroAccount/resource.h>
#include <VantroAccount/role.h>
#include <VantroAccount/rootidentity.h>
#include <VantroAccount/service.h>
#include <VantroAccount/session.h>

#include <QQmlExtensionPlugin>
#include <QtQml>

namespace vn::account {

class VantroAccountPlugin : public QQmlExtensionPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)

public:
    void registerTypes(const char *uri) override
    {
        Q_ASSERT(QLatin1String(uri) == QLatin1String("Vantro.Account"));
        qmlRegisterType<Account>(uri, 1, 0, "Account");
        qmlRegisterType<CredentialAuthenticator>(uri, 1, 0, "CredentialAuthenticator");
        qmlRegisterType<ChallengeResponseAuthenticator>(uri, 1, 0, "ChallengeResponseAuthenticator");
        qmlRegisterType<Permission>(uri, 1, 0, "Permission");
        qmlRegisterType<Role>(uri, 1, 0, "Role");
        qmlRegisterType<LoginListModel>(uri, 1, 0, "LoginListModel");
        qmlRegisterType<PasswordReset>(uri, 1, 0, "PasswordReset");

        // What the account hands out through its properties: read in QML, made by the account.
        const QString handedOut = QStringLiteral("The account makes these; read them from its properties");
        qmlRegisterUncreatableType<Consumer>(uri, 1, 0, "Consumer", handedOut);
        qmlRegisterUncreatableType<Session>(uri, 1, 0, "Session", handedOut);
        qmlRegisterUncreatableType<AccountIdentity>(uri, 1, 0, "AccountIdentity", handedOut);
        qmlRegisterUncreatableType<Resource>(uri, 1, 0, "Resource", handedOut);
        qmlRegisterUncreatableType<Service>(uri, 1, 0, "Service", handedOut);
        qmlRegisterUncreatableType<Database>(uri, 1, 0, "Database", handedOut);
        qmlRegisterUncreatableType<DatabaseCredentials>(uri, 1, 0, "DatabaseCredentials", handedOut);
        // Named only as the types of arguments and properties: Account.login() takes any
        // authenticator, and an identity's parent is the next link of the chain.
        qmlRegisterAnonymousType<AbstractAuthenticator>(uri, 1);
        qmlRegisterAnonymousType<Identity>(uri, 1);
        qmlRegisterAnonymousType<RootIdentity>(uri, 1);
    }
};

} // namespace vn::account

#include "vantroaccountplugin.moc"
