// The QML tests of this folder, with the module imported from the build tree as an application
// imports it, against the development service in-process.
#include "accountfixture.h"

#include <VantroAccount/credentialauthenticator.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlNetworkAccessManagerFactory>
#include <QtQuickTest>

// What the QML tests ask of the service: the demo device's key, another login of Ada's, how many
// logins there are.
class ServiceControl : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QUrl deviceKeyFile READ deviceKeyFile CONSTANT)

public:
    explicit ServiceControl(AccountFixture &fixture)
        : m_fixture(fixture)
    {
        AccountFixture::asAda(m_elsewhere);
        m_elsewhere.setHostInfo(QStringLiteral("elsewhere"));
        m_elsewhere.setNetwork(vn::network::NetworkAccessManager::sharedInstance());
    }

    QUrl deviceKeyFile() const { return QUrl::fromLocalFile(QStringLiteral(DEMO_DEVICE_KEY)); }
    Q_INVOKABLE void logInElsewhere() { m_elsewhere.start(); }
    Q_INVOKABLE int loginCount() const { return int(m_fixture.service.logins().size()); }

private:
    AccountFixture &m_fixture;
    vn::account::CredentialAuthenticator m_elsewhere;
};

class Setup : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void applicationAvailable()
    {
        m_fixture = std::make_unique<AccountFixture>(); // after the application, as it needs one
        if (!m_fixture->start(0.01)) {                  // the login list's minute passes in 0.6 s
            qFatal("the development service did not start");
        }
        m_control = std::make_unique<ServiceControl>(*m_fixture);
        m_resetRedirect = m_fixture->resetRedirect();
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        engine->addImportPath(QStringLiteral(VANTRO_QML_BUILD_DIR));
        engine->setNetworkAccessManagerFactory(m_resetRedirect.get());
        engine->rootContext()->setContextProperty(QStringLiteral("devService"), m_control.get());
    }

private:
    std::unique_ptr<AccountFixture> m_fixture;
    std::unique_ptr<ServiceControl> m_control;
    std::unique_ptr<QQmlNetworkAccessManagerFactory> m_resetRedirect;
};

QUICK_TEST_MAIN_WITH_SETUP(qml, Setup)

#include "tst_qml.moc"
