// The real vantro-account program against the development service in this process: each command's
// output and exit code, secrets never printed, and the service failing or ending the login under it.

#include "serviceclient.h"

#include <devservice.h>

#include <VantroCrypto/privatekey.h>

#include <QtTest>

using namespace vn::test;

namespace {

const QString WrongPassword = "not-ada-demo-password";
// Secrets of the demo scenario's credential resources.
const QStringList ResourceSecrets = {"demo-author-bearer-token", "demo-author-db-password",
                                     "demo-device-token-secret"};
// What a profile holds when nobody is signed in.
const QStringList ClientEntries = {"clientId", "clientKey"};

struct Row
{
    // "ada" when signed in as Ada, then what the service does: nothing, "down", "revoke" (Ada's
    // login), "other" (a second login of Ada, @other in the arguments), or "PATH STATUS [COUNT]":
    // the next COUNT requests to api/v1/PATH get STATUS.
    QString before;
    QString arguments; // @/ is the test's folder, @own the id of Ada's login
    int exitCode;
    QString out;        // regular expressions that must match
    QString err;        // of the last line when the command fails, else of all standard error
    bool signedInAfter; // else the profile holds only the client id and key
    QByteArray input;
};

} // namespace

Q_DECLARE_METATYPE(Row)

class TestVantroAccount : public QObject
{
    Q_OBJECT

    vn::devservice::DevService m_service;
    QTemporaryDir m_folder;
    QString m_configuration;     // names m_service
    QString m_deadConfiguration; // names a port nobody listens on
    QString m_profile;           // this test's profile folder
    QString m_printed;           // everything the program printed in this test
    int m_tests = 0;

    QStringList profileEntries() const { return QDir(m_profile).entryList(QDir::Files); }

    ProcessResult run(const QStringList &arguments, const QByteArray &input = QByteArray(),
                      bool serviceDown = false)
    {
        qputenv("VANTRO_ACCOUNT_CONFIG",
                QFile::encodeName(serviceDown ? m_deadConfiguration : m_configuration));
        const ProcessResult result = runProcess(VANTRO_ACCOUNT_PROGRAM, arguments, input);
        m_printed += QString::fromUtf8(result.out + result.err);
        return result;
    }

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void commands_data();
    void commands();
    void passwordPrompt();
};

void TestVantroAccount::initTestCase()
{
    QVERIFY(m_folder.isValid());
    QLoggingCategory::setFilterRules("vantro.devservice.request=false");
    QVERIFY(m_service.listen("127.0.0.1", 0));
    m_configuration = m_folder.filePath("account.json");
    QVERIFY(m_service.writeConfiguration(m_configuration));
    vn::devservice::DevService stopped;
    QVERIFY(stopped.listen("127.0.0.1", 0));
    m_deadConfiguration = m_folder.filePath("dead.json");
    QVERIFY(stopped.writeConfiguration(m_deadConfiguration));

    // One client id and key for every test: making a key per test would cost more than the tests.
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(m_folder.filePath("template")));
    QCOMPARE(run({"status"}).exitCode, 3);
    QCOMPARE(QDir(m_folder.filePath("template/default")).entryList(QDir::Files), ClientEntries);

    const vn::crypto::PrivateKey demoKey(readFile(DEMO_DEVICE_KEY));
    QVERIFY(writeFile(m_folder.filePath("encrypted.pem"), demoKey.toEncryptedPEM("kiosk passphrase")));
    QVERIFY(writeFile(m_folder.filePath("unknown.pem"), vn::crypto::PrivateKey(1, 2048).toPEM()));
}

void TestVantroAccount::init()
{
    const QString location = m_folder.filePath(QString("test%1").arg(++m_tests));
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(location));
    m_profile = location + "/default";
    m_printed.clear();
    QVERIFY(QDir().mkpath(m_profile));
    for (const QString &entry : ClientEntries) {
        QVERIFY(QFile::copy(m_folder.filePath("template/default/" + entry), m_profile + '/' + entry));
    }
}

void TestVantroAccount::cleanup()
{
    m_service.clearFaults();
    // Nothing the program printed shows a password, the client key (a line from the middle of its
    // PEM text) or a credential; nor any token, whose header always encodes as "eyJhbGciOiJ".
    QStringList secrets =
        ResourceSecrets + QStringList{demo::AdaPassword, demo::BobPassword, WrongPassword, "eyJhbGciOiJ"};
    secrets << QString::fromLatin1(readFile(m_profile + "/clientKey").split('\n').value(3));
    for (const QString &secret : qAsConst(secrets)) {
        QVERIFY2(secret.isEmpty() || !m_printed.contains(secret), "a secret was printed");
    }
}

void TestVantroAccount::commands_data()
{
    QTest::addColumn<Row>("row");
    const auto row = [](const char *name, const char *before, const char *arguments, int exitCode,
                        const char *out, const char *err, bool signedInAfter,
                        const QByteArray &input = demo::AdaPassword.toUtf8() + '\n') {
        QTest::newRow(name) << Row{before, arguments, exitCode, out, err, signedInAfter, input};
    };
    const char *notSignedIn = "^Not signed in; sign in with 'vantro-account login USER'.\n$";
    const char *ended = "The service has ended this login .*; sign in again";
    const char *unreachable = "The account service at http://\\S+ could not be reached";
    const char *signIn = "login ada@example.com --password-stdin";
    const char *noWarning = "^(?![\\s\\S]*Warning)";

    row("status, signed out", "", "status", 3, "Status: +Disconnected\n", notSignedIn, false);
    row("the others, signed out", "",
        "resources; services; logins; logins end 42; services get demo-files items", 3, "^$", notSignedIn,
        false);
    row("logout, signed out", "", "logout", 3, "^$", "^Not signed in, so there is nothing to sign out",
        false);

    row("login", "", signIn, 0, "^Signed in to http://\\S+ as Ada Lovelace <ada@example.com>.\n$", "", true);
    row("login, wrong password", "", signIn, 1, "^$",
        "^The service refused the sign-in as ada@example.com: wrong user name or password; check", false,
        WrongPassword.toUtf8());
    row("login, impersonation refused", "", "--password-stdin login bob@example.com>>ada@example.com", 1,
        "^$", "bob@example.com may not act as ada@example.com", false, demo::BobPassword.toUtf8());
    row("login, impersonating", "", "login ada@example.com>>bob@example.com --password-stdin", 0,
        "as Bob Example <bob@example.com>", "", true);
    row("login, one-shot", "", "login ada@example.com --password-stdin --no-persist", 0,
        "^Signed in .* Ada Lovelace.*\nSigned out again", "", false);
    row("login, already signed in", "ada", signIn, 1, "^$", "^Already signed in( as \\S+)?; sign out first",
        true);
    row("login, service down", "down", signIn, 1, "^$", unreachable, false);
    row("login, service fails", "authenticate 503", signIn, 1, "^$",
        "failed with a server error while signing in", false);
    row("login, no input", "", signIn, 2, "^$", "^Standard input is empty", false, QByteArray());
    row("login, empty user name", "", "login >> --password-stdin", 2, "^$", "^The user name is empty", false);

    // Device keys: the demo's, the same encrypted, and one the service does not know.
    row("login, encrypted device key", "", "login --key @/encrypted.pem --passphrase-stdin", 0,
        "as Ada Lovelace", "", true, "kiosk passphrase\n");
    row("login, wrong passphrase", "", "login --key @/encrypted.pem --passphrase-stdin", 1, "^$",
        "^The key in \\S+encrypted.pem does not open with this passphrase", false, "kiosk\n");
    row("login, unknown device key", "", "login --key @/unknown.pem", 1, "^$",
        "^The service refused the sign-in with the key in \\S+unknown.pem: it does not know this key", false);
    row("login, no key file", "", "login --key @/missing.pem", 1, "^$",
        "^Cannot read the key file \\S+missing.pem: No such file or directory.\n$", false);

    row("status", "ada", "status", 0,
        "Status: +Connected, online\n(.*\n)+Consumer: +Ada Lovelace <ada@example.com>, id \\S+\n"
        "Permissions: +ReadPermission\\|ModifyPermission\\|ConsumerType\n(.*\n){3}Roles: +admin, author\n"
        "Identity: +Example Account; the chain .* > Example Organisation > Example Account verifies\n"
        "Resources: +9 \\(3 \\S+AuthorCredentials, 1 \\S+Database, 3 \\S+DeviceCredentials, 2 \\S+\\)\n$",
        noWarning, true);
    row("status, library log lines", "ada", "status --verbose", 0, "Connected, online",
        "vantro.account: Loading profile for client", true);
    row("resources", "ada", "resources", 0,
        "^vantro.resource.Database d28dbfe9-09a6-4d70-b66e-2645d0940d90\n +owner \\S+, priority 65534, valid"
        "\n(.*\n)* +realm: db.example.com\n +type: basic\n +not shown \\(secret\\): credentials\n"
        "(.*\n)* +url: http://127.0.0.1:\\d+/\n$",
        noWarning, true);
    row("status, JSON", "ada", "status --json", 0,
        "^\\{\n(?=[\\s\\S]*\"online\": true,\n)(?=[\\s\\S]*\"verified\": true\n)(?=[\\s\\S]*\"flags\": "
        "\\[\n +\"ReadPermission\",\n +\"Journal\"\n +\\],\n +\"value\": 131073\n)",
        "", true);
    row("resources, JSON", "ada", "resources --json", 0,
        "^\\[\n(?=[\\s\\S]*\"withheld\": \\[\n +\"credentials\"\n)", "", true);
    // The program's own sign-in, kept in a named profile in a folder of its own for the next process.
    row("login, named profile", "",
        "login ada@example.com --password-stdin --json --profile work --profile-location @/named; "
        "status --json --profile work --profile-location @/named",
        0, "\"name\": \"Ada Lovelace\"", "", true);
    row("services", "ada", "services", 0,
        "^demo-files http://127.0.0.1:\\d+/ \\(disabled\\)\n +id \\S+\ndemo-reports http://127.0.0.1:\\d+/ "
        "\\(disabled\\)\n",
        "", true);
    row("services get", "ada", "services get demo-files items/7", 0,
        "^\\{.*\"path\":\"/items/7\".*\"service\":\"demo-files\".*\\}\n$", "", true);
    row("services get, unknown service", "ada", "services get demo-music items", 1, "^$",
        "^The account has no service \"demo-music\"", true);
    row("services get, token refused", "ada tokens/* 403 100", "services get demo-files items --wait 1", 1,
        "^$", "issued no token for demo-files within 1 s", true);
    row("logins", "ada other", "logins", 0,
        "^(  .*\n)*\\* [0-9a-f-]{36}  since \\S+  from .*\n(  .*\n)*\\(\\* this client's login\\)\n$", "",
        true);
    row("logins end", "ada other", "logins end @other", 0, "^Ended login [0-9a-f-]{36}.\n$", "", true);
    row("logins end, own login", "ada", "logins end @own", 1, "^$",
        "^Login [0-9a-f-]{36} is this client's own; end it with 'vantro-account logout'.\n$", true);
    row("logins end, no such login", "ada", "logins end 42", 1, "^$",
        "^The account has no login 42 at the service; list its logins", true);
    row("logout", "ada", "logout", 0, "^Signed out.\n$", "", false);

    row("status, service down", "ada down", "status", 1, "Status: +Connected, offline\n", unreachable, true);
    row("status, service fails", "ada logins/current 500", "status", 1, "Status: +Connected, offline\n",
        "at http://\\S+ failed with HTTP 500 on the login check; try again later", true);
    row("status, service refuses", "ada logins/current 404", "status", 1, "Status: +Connected, offline\n",
        "answered the login check with HTTP 404; check that", true);
    row("status, login revoked", "ada revoke", "status", 3, "Status: +Disconnected\n", ended, false);
    row("logout, service down", "ada down", "logout", 1, "^$",
        "^Signed out here, but .* could not be reached, so the login stays valid", false);

    // The help, command lines that fit no command, and option values out of range.
    row("help", "", "--help", 0,
        "^Usage: \\S+ \\[options\\] COMMAND \\[ARGUMENTS\\]\n(.*\n)+  --wait <SECONDS> +Longest wait "
        "(.*\n)+Commands:\n"
        "  login USER \\[--password-stdin\\] \\[--no-persist\\] \\[--json\\]\n(.*\n)+  logins end ID\n",
        "^$", false);
    row("no command", "", "", 2, "^$", "^No command given.", false);
    row("unknown command", "", "whoami", 2, "^$",
        "^Unknown command \"whoami\". See 'vantro-account --help'.\n$", false);
    row("login without user", "", "login", 2, "^$",
        "^login takes one user name, as in 'vantro-account login USER'.", false);
    row("login with key and user", "", "login ada@example.com --key @/unknown.pem", 2, "^$",
        "^login --key takes no user name", false);
    row("option of a form of another command", "", "status --key @/unknown.pem", 2, "^$",
        "^--key goes with login only.", false);
    row("option of another form", "", "login --key @/unknown.pem --password-stdin", 2, "^$",
        "^--password-stdin goes with login USER only.", false);
    row("option of no such command", "", "logout --json", 2, "^$",
        "^--json goes with login, status, resources, services and logins only.", false);
    row("login id with a path", "ada", "logins end ../consumer", 2, "^$", "is not a login id", true);
    row("wait too short", "", "status --wait 0.5", 2, "^$", "^--wait takes seconds from 1 to 600", false);
    row("profile with a path", "", "status --profile ..", 2, "^$", "^--profile takes a plain name", false);
}

void TestVantroAccount::commands()
{
    QFETCH(Row, row);
    QString service = row.before;
    const bool signedIn = service.startsWith("ada");
    service.remove(QRegularExpression("^ada ?"));
    ServiceClient client(m_service.url());
    if (signedIn) {
        // As an earlier sign-in would have left the profile.
        const QByteArray token = client.login(demo::Ada, demo::AdaPassword);
        QVERIFY(writeFile(m_profile + "/accessToken", token));
        client.setToken(token);
    }
    QString arguments = QString(row.arguments).replace("@/", m_folder.path() + '/');
    if (arguments.contains("--profile work")) {
        m_profile = m_folder.filePath("named/work"); // where the row's profile options point
    }
    if (arguments.contains("@own")) {
        arguments.replace("@own", client.get("logins/current").text("id"));
    }
    if (service == "other") {
        ServiceClient other(m_service.url());
        arguments.replace("@other", other.as(demo::Ada).get("logins/current").text("id"));
    }
    if (service == "revoke") {
        QCOMPARE(client.send("DELETE", "logins/current").status, 200);
    }
    const QStringList fault = service.split(' ');
    if (fault.size() > 1) {
        m_service.addFault(
            {"api/v1/" + fault.at(0), QByteArray(), fault.value(2, "1").toInt(), fault.at(1).toInt()});
    }

    // A row may hold several command lines, separated by ";": each ends as the row says.
    for (const QString &commandLine : arguments.split(';')) {
        const ProcessResult result =
            run(commandLine.split(' ', Qt::SkipEmptyParts), row.input, service == "down");
        const QString out = QString::fromUtf8(result.out), err = QString::fromUtf8(result.err);
        QVERIFY2(result.exitCode == row.exitCode, qPrintable(commandLine + ": " + err));
        QVERIFY2(QRegularExpression(row.out).match(out).hasMatch(), qPrintable(out));
        // Progress lines come first; the one-sentence reason for a failure ends standard error.
        const QString lastLine = err.mid(err.lastIndexOf('\n', -2) + 1);
        QVERIFY2(QRegularExpression(row.err).match(row.exitCode == 0 ? err : lastLine).hasMatch(),
                 qPrintable(err));
    }
    QCOMPARE(profileEntries().contains("accessToken"), row.signedInAfter);
    if (!row.signedInAfter) {
        QCOMPARE(profileEntries(), ClientEntries);
    }
}

void TestVantroAccount::passwordPrompt()
{
    // The prompt needs a controlling terminal, which script(1) gives the program.
    qputenv("VANTRO_ACCOUNT_CONFIG", QFile::encodeName(m_configuration));
    QProcess script;
    script.start("script", {"-qec", VANTRO_ACCOUNT_PROGRAM " login ada@example.com", "/dev/null"});
    QByteArray seen;
    while (!seen.contains("Password for ada@example.com: ") && script.waitForReadyRead(20000)) {
        seen += script.readAll();
    }
    script.write(demo::AdaPassword.toUtf8() + '\n'); // typed only now: before the prompt, the terminal echoes
    QVERIFY(script.waitForFinished(60000));
    seen += script.readAll();
    m_printed += QString::fromUtf8(seen); // the typed password must not come back either
    QVERIFY2(script.exitCode() == 0 && seen.contains("Signed in to http://"),
             qPrintable(QString::fromUtf8(seen).remove(demo::AdaPassword)));
    QVERIFY(profileEntries().contains("accessToken"));
}

QTEST_GUILESS_MAIN(TestVantroAccount)
#include "tst_vantroaccount.moc"
