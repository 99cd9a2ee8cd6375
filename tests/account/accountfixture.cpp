#include "accountfixture.h"

#include "timescale_p.h"

#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/passwordreset.h>
#include <VantroAccount/profile.h>

#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QQmlNetworkAccessManagerFactory>
#include <QTest>

using vn::account::Account;

namespace {

class ResetRedirect : public QNetworkAccessManager
{
public:
    ResetRedirect(const QUrl &target, QObject *parent)
        : QNetworkAccessManager(parent)
        , m_target(target)
    {}

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *body) override
    {
        QNetworkRequest redirected = request;
        if (request.url() == vn::account::PasswordReset::url()) {
            redirected.setUrl(m_target);
        }
        return QNetworkAccessManager::createRequest(operation, redirected, body);
    }

private:
    const QUrl m_target;
};

class ResetRedirectFactory : public QQmlNetworkAccessManagerFactory
{
public:
    explicit ResetRedirectFactory(const QUrl &target)
        : m_target(target)
    {}
    QNetworkAccessManager *create(QObject *parent) override { return new ResetRedirect(m_target, parent); }

private:
    const QUrl m_target;
};

} // namespace

const QSet<QString> AccountFixture::ClientIdentity{QStringLiteral("clientId"), QStringLiteral("clientKey")};

bool AccountFixture::start(double timeScale, const QString &basePath)
{
    // A line for every request served, every request warning and every refusal of a forged resource
    // would bury the lines of a failure.
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false\n"
                                                    "vantro.request.warning=false\n"
                                                    "vantro.account.resource.critical=false"));
    vn::account::TimeScale::setFactor(timeScale);
    service.setBasePath(basePath);
    const QString configuration = folder.filePath(QStringLiteral("account.json"));
    if (!folder.isValid() || !service.listen(QStringLiteral("127.0.0.1"), 0) ||
        !service.writeConfiguration(configuration)) {
        return false;
    }
    qputenv("VANTRO_ACCOUNT_CONFIG", configuration.toLocal8Bit());
    for (const QString &entry : profileEntries() - ClientIdentity) {
        Account::profile().deleteEntry(entry);
    }
    return true;
}

bool AccountFixture::connect(Account &account, bool persistent)
{
    vn::account::CredentialAuthenticator authenticator;
    authenticator.setUserName(vn::test::demo::Ada);
    authenticator.setPassword(vn::test::demo::AdaPassword);
    authenticator.setPersistent(persistent);
    account.login(&authenticator);
    return QTest::qWaitFor(
        [&account] { return account.consumer() && account.identity() && !account.resourceList().isEmpty(); },
        10000);
}

bool AccountFixture::isSignedOut(const Account &account)
{
    return account.status() == Account::Disconnected && !account.isOnline() && !account.consumer() &&
           !account.identity() && !account.session() && account.resourceList().isEmpty() &&
           !account.accessToken().isValid() && profileEntries() == ClientIdentity;
}

QSet<QString> AccountFixture::profileEntries()
{
    const QStringList entries = Account::profile().entries();
    return QSet<QString>(entries.cbegin(), entries.cend());
}

void AccountFixture::addFault(const QString &path, const QByteArray &method, int status, int count)
{
    vn::devservice::Fault fault;
    fault.path = QStringLiteral("api/v1/") + path;
    fault.method = method;
    fault.status = qMax(status, 0);
    fault.dropConnection = status == Dropped;
    fault.malformedBody = status == Malformed;
    fault.count = status == Dropped ? 2 * count : count;
    service.addFault(fault);
}

int AccountFixture::countRequests(const QByteArray &method, const QByteArray &pathEnd) const
{
    const auto journal = service.journal();
    return int(std::count_if(journal.cbegin(), journal.cend(), [&](const auto &request) {
        return request.method == method && request.path.endsWith(pathEnd);
    }));
}

std::unique_ptr<QQmlNetworkAccessManagerFactory> AccountFixture::resetRedirect() const
{
    return std::make_unique<ResetRedirectFactory>(
        service.url().resolved(QUrl(QStringLiteral("api/v1/password-reset"))));
}
