#include "accountfixture.h"

#include "timescale_p.h"

#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/profile.h>

#include <QLoggingCategory>
#include <QSignalSpy>
#include <QTest>

using vn::account::Account;

const QString AccountFixture::Ada = QStringLiteral("ada@example.com");
const QString AccountFixture::AdaPassword = QStringLiteral("ada-demo-password");
const QSet<QString> AccountFixture::ClientIdentity{QStringLiteral("clientId"), QStringLiteral("clientKey")};

bool AccountFixture::start(double timeScale, const QString &basePath)
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false\n"
                                                    "vantro.request.warning=false"));
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

Account::Error AccountFixture::login(Account &account, bool persistent, const QString &userName,
                                     const QString &password)
{
    vn::account::CredentialAuthenticator authenticator;
    authenticator.setUserName(userName);
    authenticator.setPassword(password);
    authenticator.setPersistent(persistent);
    QSignalSpy errors(&account, &Account::error);
    account.login(&authenticator);
    // An account still connecting after this shows in the status the caller checks.
    (void)QTest::qWaitFor([&account] { return account.status() != Account::Connecting; }, 10000);
    return errors.isEmpty() ? Account::NoError : errors.constLast().at(0).value<Account::Error>();
}

bool AccountFixture::connect(Account &account, bool persistent)
{
    return login(account, persistent) == Account::NoError &&
           QTest::qWaitFor(
               [&account] {
                   return account.consumer() && account.identity() && !account.resourceList().isEmpty();
               },
               10000);
}

bool AccountFixture::logout(Account &account)
{
    account.logout();
    return QTest::qWaitFor([&account] { return account.status() == Account::Disconnected; }, 10000);
}

QSet<QString> AccountFixture::profileEntries()
{
    const QStringList entries = Account::profile().entries();
    return QSet<QString>(entries.cbegin(), entries.cend());
}

void AccountFixture::addFault(const QString &path, const QByteArray &method, int status, int delay)
{
    vn::devservice::Fault fault;
    fault.path = QStringLiteral("api/v1/") + path;
    fault.method = method;
    fault.status = qMax(status, 0);
    fault.dropConnection = status == Dropped;
    fault.count = status == Dropped ? 2 : 1;
    fault.delay = delay;
    service.addFault(fault);
}

int AccountFixture::countRequests(const QByteArray &method, const QByteArray &pathEnd) const
{
    const auto journal = service.journal();
    return int(std::count_if(journal.cbegin(), journal.cend(), [&](const auto &request) {
        return request.method == method && request.path.endsWith(pathEnd);
    }));
}
