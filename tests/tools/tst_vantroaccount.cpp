// The real vantro-account program against the development service running in this process: each
// command's output and exit code, JSON read back, secrets never printed, a persisted login seen by
// later processes, and the service failing or ending the login under it.

#include <devservice.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

using vn::devservice::DevService;
using vn::devservice::Fault;

namespace {

struct Result
{
    int exitCode = -1;
    QString out;
    QString err;
};

// The demo scenario's users.
const QString Ada = QStringLiteral("ada@example.com");
const QString AdaPassword = QStringLiteral("ada-demo-password");
const QString Bob = QStringLiteral("bob@example.com");
const QString BobPassword = QStringLiteral("bob-demo-password");

// Secrets of the demo scenario's credential resources, which no output may ever show.
const QStringList ResourceSecrets = {QStringLiteral("demo-author-bearer-token"),
                                     QStringLiteral("demo-author-db-password"),
                                     QStringLiteral("demo-device-token-secret")};
const QString WrongPassword = QStringLiteral("not-ada-demo-password");

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// One request to the service's API below @p service, waited for; the answer's status code.
int exchange(const QUrl &service, const QByteArray &method, const QString &path, const QByteArray &token,
             const QJsonObject &body = {}, QJsonObject *answer = nullptr)
{
    QNetworkAccessManager network;
    QNetworkRequest request(service.resolved(QUrl(QStringLiteral("api/v1/") + path)));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    if (!token.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + token);
    QNetworkReply *reply = network.sendCustomRequest(request, method, QJsonDocument(body).toJson());
    QSignalSpy finished(reply, &QNetworkReply::finished);
    finished.wait(20000);
    if (answer)
        *answer = QJsonDocument::fromJson(reply->readAll()).object();
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(); // the manager owns the reply
}

/// A new login of @p user at @p service; its token.
QByteArray logIn(const QUrl &service, const QString &user, const QString &password)
{
    QJsonObject answer;
    exchange(service, "POST", QStringLiteral("authenticate"), QByteArray(),
             {{QStringLiteral("authType"), QStringLiteral("credentials")},
              {QStringLiteral("username"), user},
              {QStringLiteral("password"), password}},
             &answer);
    return answer.value(QLatin1String("token")).toString().toLatin1();
}

Fault fault(const char *path, int status, int count = 1)
{
    Fault fault;
    fault.path = QLatin1String(path);
    fault.status = status;
    fault.count = count;
    return fault;
}

} // namespace

class TestVantroAccount : public QObject
{
    Q_OBJECT

    DevService m_service;
    QTemporaryDir m_folder;
    QString m_configuration;     // names m_service
    QString m_deadConfiguration; // names a port nobody listens on
    QString m_location;          // this test's profile location
    QString m_profile;           // and profile name
    QByteArray m_token;          // the login put into this test's profile, if any
    int m_tests = 0;

    QString entryPath(const QString &entry) const
    {
        return QStringList{m_location, m_profile, entry}.join('/');
    }

    Result run(const QStringList &arguments, const QByteArray &input = QByteArray(),
               const QString &configuration = QString())
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VANTRO_ACCOUNT_CONFIG"),
                           configuration.isEmpty() ? m_configuration : configuration);
        environment.insert(QStringLiteral("VANTRO_PROFILE_LOCATION"), m_location);
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(VANTRO_ACCOUNT_PROGRAM), arguments);
        process.write(input);
        process.closeWriteChannel();
        Result result;
        if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
            result.exitCode = process.exitCode();
        result.out = QString::fromUtf8(process.readAllStandardOutput());
        result.err = QString::fromUtf8(process.readAllStandardError());
        return result;
    }

    /// Puts a fresh login of @p user into this test's profile, as a earlier sign-in would have left it.
    bool signIn(const QString &user, const QString &password)
    {
        m_token = logIn(m_service.url(), user, password);
        QFile file(entryPath(QStringLiteral("accessToken")));
        return !m_token.isEmpty() && file.open(QIODevice::WriteOnly) && file.write(m_token) == m_token.size();
    }

    /// Fails the test when @p result shows a password, the token, the client key or a credential.
    void verifyNoSecrets(const Result &result)
    {
        QStringList secrets = ResourceSecrets + QStringList{AdaPassword, BobPassword, WrongPassword};
        for (const QByteArray &token : {m_token, readFile(entryPath(QStringLiteral("accessToken")))}) {
            if (!token.isEmpty())
                secrets.append(QString::fromLatin1(token));
        }
        // A line from the middle of the client key's PEM text.
        secrets.append(
            QString::fromLatin1(readFile(entryPath(QStringLiteral("clientKey"))).split('\n').value(3)));
        for (const QString &secret : qAsConst(secrets)) {
            QVERIFY(secret.size() > 10);
            QVERIFY2(!result.out.contains(secret) && !result.err.contains(secret), "a secret was printed");
        }
    }

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_service.clearFaults(); }

    void commands_data();
    void commands();
    void jsonAndRestart();
    void endAnotherLogin();
    void passwordPrompt();
};

void TestVantroAccount::initTestCase()
{
    QVERIFY(m_folder.isValid());
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request=false"));
    QVERIFY(m_service.listen(QStringLiteral("127.0.0.1"), 0));
    m_configuration = m_folder.filePath(QStringLiteral("account.json"));
    QVERIFY(m_service.writeConfiguration(m_configuration));
    DevService stopped;
    QVERIFY(stopped.listen(QStringLiteral("127.0.0.1"), 0));
    m_deadConfiguration = m_folder.filePath(QStringLiteral("dead.json"));
    QVERIFY(stopped.writeConfiguration(m_deadConfiguration));

    // One client id and key for every test: making a key per test would cost more than the tests.
    m_location = m_folder.filePath(QStringLiteral("template"));
    m_profile = QStringLiteral("default");
    QCOMPARE(run({QStringLiteral("status")}).exitCode, 3);
    QCOMPARE(QDir(m_location + QStringLiteral("/default")).entryList(QDir::Files),
             QStringList({QStringLiteral("clientId"), QStringLiteral("clientKey")}));
}

void TestVantroAccount::init()
{
    const QString template_ = m_folder.filePath(QStringLiteral("template/default/"));
    m_location = m_folder.filePath(QStringLiteral("test%1").arg(++m_tests));
    m_profile = QStringLiteral("default");
    m_token.clear();
    QVERIFY(QDir().mkpath(m_location + QStringLiteral("/default")));
    for (const QString &entry : {QStringLiteral("clientId"), QStringLiteral("clientKey")})
        QVERIFY(QFile::copy(template_ + entry, entryPath(entry)));
}

void TestVantroAccount::commands_data()
{
    QTest::addColumn<QString>("user");    // signed in before the command: "ada", "bob" or nobody
    QTest::addColumn<QString>("service"); // "up", "down", or what goes wrong at the service
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("out"); // regular expressions that must match
    QTest::addColumn<QString>("err");
    QTest::addColumn<bool>("signedInAfter"); // else the profile holds only the client id and key
    QTest::addColumn<QByteArray>("input");

    const auto row = [](const char *name, const char *user, const char *service, const char *arguments,
                        int exitCode, const char *out, const char *err, bool signedInAfter,
                        const QByteArray &input = AdaPassword.toUtf8() + '\n') {
        QTest::newRow(name) << QString::fromLatin1(user) << QString::fromLatin1(service)
                            << QString::fromLatin1(arguments).split(QLatin1Char(' '), Qt::SkipEmptyParts)
                            << exitCode << QString::fromUtf8(out) << QString::fromUtf8(err) << signedInAfter
                            << input;
    };
    const char *notSignedIn = "^Not signed in; sign in with 'vantro-account login USER'.\n$";
    const char *ended = "The service has ended this login .*; sign in again";
    const char *unreachable = "The account service at http://\\S+ could not be reached";
    const char *signIn = "login ada@example.com --password-stdin";

    row("status, signed out", "", "up", "status", 3, "Status: +Disconnected\n", notSignedIn, false);
    row("resources, signed out", "", "up", "resources", 3, "^$", notSignedIn, false);
    row("logins, signed out", "", "up", "logins", 3, "^$", notSignedIn, false);
    row("logout, signed out", "", "up", "logout", 3, "^$", "^Not signed in, so there is nothing to sign out",
        false);
    row("login", "", "up", signIn, 0, "^Signed in to http://\\S+ as Ada Lovelace <ada@example.com>.\n$", "",
        true);
    row("login, wrong password", "", "up", signIn, 1, "^$",
        "^The service refused the sign-in as ada@example.com: wrong user name or password; check", false,
        WrongPassword.toUtf8());
    row("login, impersonation refused", "", "up", "--password-stdin login bob@example.com>>ada@example.com",
        1, "^$", "bob@example.com may not act as ada@example.com", false, BobPassword.toUtf8());
    row("login, impersonating", "", "up", "login ada@example.com>>bob@example.com --password-stdin", 0,
        "as Bob Example <bob@example.com>", "", true);
    row("login, one-shot", "", "up", "login ada@example.com --password-stdin --no-persist", 0,
        "^Signed in .* Ada Lovelace.*\nSigned out again", "", false);
    row("login, already signed in", "ada", "up", signIn, 1, "^$",
        "^Already signed in( as \\S+)?; sign out first", true);
    row("login, service down", "", "down", signIn, 1, "^$", unreachable, false);
    row("login, service fails", "", "sign-in 503", signIn, 1, "^$",
        "failed with a server error while signing in", false);
    row("login, no input", "", "up", signIn, 2, "^$", "^Standard input is empty", false, QByteArray());

    row("status", "ada", "up", "status", 0,
        "Status: +Connected, online\n(.*\n)+Consumer: +Ada Lovelace <ada@example.com>, id \\S+\n"
        "Permissions: +ReadPermission\\|ModifyPermission\\|ConsumerType\n "
        "+ReadPermission\\|ModifyPermission\\|"
        "CreatePermission\\|DeletePermission\\|ResourceType\n(.*\n){2}Roles: +admin, author\nIdentity: "
        "+Example "
        "Account; the chain .* > Example Organisation > Example Account verifies\nResources: +9 \\(3 vantro."
        "resource.AuthorCredentials, 1 vantro.resource.Database, 3 vantro.resource.DeviceCredentials, 2 "
        "vantro."
        "resource.Service\\)\n$",
        "^(?![\\s\\S]*Warning)", true);
    row("resources", "ada", "up", "resources", 0,
        "^vantro.resource.Database d28dbfe9-09a6-4d70-b66e-2645d0940d90\n +owner \\S+, priority 65534, "
        "valid\n"
        "(.*\n)* +realm: db.example.com\n +type: basic\n +not shown \\(secret\\): credentials\n(.*\n)* +url: "
        "https://reports.example.com/\n$",
        "^(?![\\s\\S]*Warning)", true);
    row("logins", "ada", "up", "logins", 0,
        "^(  .*\n)*\\* [0-9a-f-]{36}  since \\S+  from .*\n(  .*\n)*\\(\\* this client's login\\)\n$", "",
        true);
    row("status, library log lines", "ada", "up", "status --verbose", 0, "Connected, online",
        "vantro.account: Loading profile for client", true);
    row("logout", "ada", "up", "logout", 0, "^Signed out.\n$", "", false);

    row("status, service down", "ada", "down", "status", 1, "Status: +Connected, offline\n", unreachable,
        true);
    row("status, service fails", "ada", "check 500", "status", 1, "Status: +Connected, offline\n",
        "at http://\\S+ failed with HTTP 500 on the login check; try again later", true);
    row("status, login revoked", "ada", "revoke", "status", 3, "Status: +Disconnected\n", ended, false);
    row("resources, service answers 401", "ada", "check 401", "resources", 3, "^$", ended, false);
    row("logins, service fails", "ada", "list 500", "logins", 1, "^$",
        "failed with HTTP 500 on the login list", true);
    row("logout, service down", "ada", "down", "logout", 1, "^$",
        "^Signed out here, but the account service at http://\\S+ could not be reached, so the login stays "
        "valid",
        false);

    row("no command", "", "up", "", 2, "^$", "^No command given.", false);
    row("unknown command", "", "up", "whoami", 2, "^$",
        "^Unknown command \"whoami\". See 'vantro-account --help'.\n$", false);
    row("login without user", "", "up", "login", 2, "^$", "^login takes one user name", false);
    row("option of another command", "", "up", "status --no-persist", 2, "^$", "go with login only", false);
    row("login id with a path", "ada", "up", "logins end ../consumer", 2, "^$", "is not a login id", true);
}

void TestVantroAccount::commands()
{
    QFETCH(QString, user);
    QFETCH(QString, service);
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QFETCH(bool, signedInAfter);
    QFETCH(QByteArray, input);

    if (user == QLatin1String("ada"))
        QVERIFY(signIn(Ada, AdaPassword));
    else if (user == QLatin1String("bob"))
        QVERIFY(signIn(Bob, BobPassword));
    // The library's own check and the program's follow-up question each meet a fault once.
    if (service == QLatin1String("check 500"))
        m_service.addFault(fault("api/v1/logins/current", 500, 2));
    else if (service == QLatin1String("check 401"))
        m_service.addFault(fault("api/v1/logins/current", 401));
    else if (service == QLatin1String("list 500"))
        m_service.addFault(fault("api/v1/logins", 500));
    else if (service == QLatin1String("sign-in 503"))
        m_service.addFault(fault("api/v1/authenticate", 503));
    if (service == QLatin1String("revoke")) {
        QCOMPARE(exchange(m_service.url(), "DELETE", QStringLiteral("logins/current"), m_token), 200);
    }

    const Result result =
        run(arguments, input, service == QLatin1String("down") ? m_deadConfiguration : QString());
    QVERIFY2(result.exitCode == exitCode, qPrintable(result.err));
    QVERIFY2(QRegularExpression(out).match(result.out).hasMatch(), qPrintable(result.out));
    // Progress lines come first; the one-sentence reason for a failure ends standard error.
    const QString lastLine = result.err.mid(result.err.lastIndexOf(QLatin1Char('\n'), -2) + 1);
    QVERIFY2(QRegularExpression(err).match(exitCode == 0 ? result.err : lastLine).hasMatch(),
             qPrintable(result.err));
    verifyNoSecrets(result);

    QStringList entries = QDir(m_location + QStringLiteral("/default")).entryList(QDir::Files);
    QCOMPARE(entries.contains(QStringLiteral("accessToken")), signedInAfter);
    if (!signedInAfter)
        QCOMPARE(entries, QStringList({QStringLiteral("clientId"), QStringLiteral("clientKey")}));
}

void TestVantroAccount::jsonAndRestart()
{
    // The profile options instead of the environment: a named profile in a folder of its own.
    const QString folder = m_folder.filePath(QStringLiteral("named"));
    const QStringList profile = {QStringLiteral("--profile"), QStringLiteral("work"),
                                 QStringLiteral("--profile-location"), folder, QStringLiteral("--json")};
    const Result login =
        run(QStringList{QStringLiteral("login"), Ada, QStringLiteral("--password-stdin")} + profile,
            AdaPassword.toUtf8());
    QCOMPARE(login.exitCode, 0);
    m_location = folder;
    m_profile = QStringLiteral("work");
    QVERIFY(QFile::exists(entryPath(QStringLiteral("accessToken"))));
    verifyNoSecrets(login);
    QCOMPARE(QJsonDocument::fromJson(login.out.toUtf8())
                 .object()
                 .value(QLatin1String("consumer"))[QLatin1String("name")],
             QJsonValue(QStringLiteral("Ada Lovelace")));

    // Each status is a new process that finds the login in the profile.
    QJsonObject statuses[2];
    for (QJsonObject &status : statuses) {
        const Result result = run(QStringList{QStringLiteral("status")} + profile);
        QCOMPARE(result.exitCode, 0);
        verifyNoSecrets(result);
        status = QJsonDocument::fromJson(result.out.toUtf8()).object();
    }
    QCOMPARE(statuses[1], statuses[0]);
    const QJsonObject &status = statuses[0];
    QCOMPARE(status.value(QLatin1String("profile")).toString(), QStringLiteral("work"));
    QVERIFY(status.value(QLatin1String("online")).toBool());
    const QJsonObject consumer = status.value(QLatin1String("consumer")).toObject();
    QCOMPARE(consumer.value(QLatin1String("roles")).toArray(),
             QJsonArray({QStringLiteral("admin"), QStringLiteral("author")}));
    const QJsonObject permission = consumer.value(QLatin1String("permissions")).toArray().at(3).toObject();
    QCOMPARE(permission.value(QLatin1String("value")).toInt(), 0x20001);
    QCOMPARE(permission.value(QLatin1String("flags")).toArray(),
             QJsonArray({QStringLiteral("ReadPermission"), QStringLiteral("Journal")}));

    const Result resources = run(QStringList{QStringLiteral("resources")} + profile);
    QCOMPARE(resources.exitCode, 0);
    const QJsonArray list = QJsonDocument::fromJson(resources.out.toUtf8()).array();
    QCOMPARE(list.size(), 9);
    int withheld = 0;
    for (const QJsonValue &resource : list) {
        QVERIFY(resource[QLatin1String("valid")].toBool());
        QVERIFY(!resource[QLatin1String("payload")].toObject().contains(QLatin1String("credentials")));
        withheld += resource[QLatin1String("withheld")].toArray().size();
    }
    QCOMPARE(withheld, 6);

    const Result logins = run(QStringList{QStringLiteral("logins")} + profile);
    QCOMPARE(logins.exitCode, 0);
    int current = 0;
    for (const QJsonValue &entry : QJsonDocument::fromJson(logins.out.toUtf8()).array()) {
        if (entry[QLatin1String("current")].toBool()) {
            ++current;
            QCOMPARE(entry[QLatin1String("id")], status.value(QLatin1String("session"))[QLatin1String("id")]);
        }
    }
    QCOMPARE(current, 1);
}

void TestVantroAccount::endAnotherLogin()
{
    QVERIFY(signIn(Ada, AdaPassword));
    QVERIFY(!logIn(m_service.url(), Ada, AdaPassword).isEmpty());
    // Login ids by whether they are this client's own.
    const auto loginIds = [this](bool own) {
        QStringList ids;
        const Result result = run({QStringLiteral("logins"), QStringLiteral("--json")});
        for (const QJsonValue &entry : QJsonDocument::fromJson(result.out.toUtf8()).array()) {
            if (entry[QLatin1String("current")].toBool() == own)
                ids.append(entry[QLatin1String("id")].toString());
        }
        return ids;
    };
    const QStringList own = loginIds(true);
    const QStringList others = loginIds(false);
    QCOMPARE(own.size(), 1);
    QVERIFY(!others.isEmpty());

    const QStringList end = {QStringLiteral("logins"), QStringLiteral("end")};
    const Result ended = run(end + QStringList{others.first()});
    QCOMPARE(ended.exitCode, 0);
    QCOMPARE(ended.out, QStringLiteral("Ended login %1.\n").arg(others.first()));
    QCOMPARE(loginIds(false), others.mid(1));
    const Result again = run(end + QStringList{others.first()});
    QCOMPARE(again.exitCode, 1);
    QVERIFY2(again.err.contains(QStringLiteral("The account has no login %1").arg(others.first())),
             qPrintable(again.err));
    const Result ownEnd = run(end + own);
    QCOMPARE(ownEnd.exitCode, 1);
    QVERIFY2(
        ownEnd.err.endsWith(QStringLiteral("is this client's own; end it with 'vantro-account logout'.\n")),
        qPrintable(ownEnd.err));
}

void TestVantroAccount::passwordPrompt()
{
    // The prompt needs a controlling terminal: the program runs on a pseudo-terminal of its own.
    const QByteArray program = VANTRO_ACCOUNT_PROGRAM;
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    variables.insert(QStringLiteral("VANTRO_ACCOUNT_CONFIG"), m_configuration);
    variables.insert(QStringLiteral("VANTRO_PROFILE_LOCATION"), m_location);
    QList<QByteArray> environment;
    for (const QString &variable : variables.toStringList())
        environment.append(variable.toLocal8Bit());
    std::vector<char *> envp;
    for (QByteArray &variable : environment)
        envp.push_back(variable.data());
    envp.push_back(nullptr);
    char *const argv[] = {const_cast<char *>(program.constData()), const_cast<char *>("login"),
                          const_cast<char *>("ada@example.com"), nullptr};

    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    QVERIFY(child >= 0);
    if (child == 0) {
        ::execve(argv[0], argv, envp.data());
        ::_exit(127);
    }
    QByteArray seen;
    const auto readUntil = [&](const QByteArray &text) {
        char buffer[512];
        pollfd readable = {terminal, POLLIN, 0};
        while (!seen.contains(text)) {
            if (::poll(&readable, 1, 20000) <= 0)
                return false;
            const ssize_t count = ::read(terminal, buffer, sizeof buffer);
            if (count <= 0)
                return false;
            seen.append(buffer, int(count));
        }
        return true;
    };
    QVERIFY(readUntil("Password for ada@example.com: "));
    const QByteArray typed = AdaPassword.toUtf8() + '\n';
    QCOMPARE(::write(terminal, typed.constData(), size_t(typed.size())), ssize_t(typed.size()));
    readUntil(QByteArray("\x01")); // everything up to the end of the output
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    ::close(terminal);
    QVERIFY2(WIFEXITED(status) && WEXITSTATUS(status) == 0, seen.constData());
    QVERIFY2(seen.contains("Signed in to http://") && !seen.contains(AdaPassword.toUtf8()), seen.constData());
    QVERIFY(QFile::exists(entryPath(QStringLiteral("accessToken"))));
}

QTEST_GUILESS_MAIN(TestVantroAccount)
#include "tst_vantroaccount.moc"
