// The QML tests of this folder, with the module imported from the build tree as an application
// imports it, against the development service in-process.
#include "accountfixture.h"

#include <QQmlContext>
#include <QQmlEngine>
#include <QtQuickTest>

// Starts the service, and stands for it in the QML tests as "devService": the demo device's key,
// another login of Ada's, how many logins there are.
class Setup : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QUrl deviceKeyFile READ deviceKeyFile CONSTANT)

public:
    QUrl deviceKeyFile() const { return QUrl::fromLocalFile(QStringLiteral(DEMO_DEVICE_KEY)); }
    Q_INVOKABLE bool logInElsewhere() const { return AccountFixture::logInElsewhere(); }
    Q_INVOKABLE int loginCount() const { return int(m_fixture->service.logins().size()); }

public Q_SLOTS:
    void applicationAvailable()
    {
        m_fixture = std::make_unique<AccountFixture>(); // after the application, as it needs one
        if (!m_fixture->start(0.01)) {                  // the login list's minute passes in 0.6 s
            qFatal("the development service did not start");
        }
        m_resetRedirect = m_fixture->resetRedirect();
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        engine->addImportPath(QStringLiteral(VANTRO_QML_BUILD_DIR));
        engine->setNetworkAccessManagerFactory(m_resetRedirect.get());
        engine->rootContext()->setContextProperty(QStringLiteral("devService"), this);
    }

private:
    std::unique_ptr<AccountFixture> m_fixture;
    std::unique_ptr<QQmlNetworkAccessManagerFactory> m_resetRedirect;
};

QUICK_TEST_MAIN_WITH_SETUP(qml, Setup)

#include "tst_qml.moc"
