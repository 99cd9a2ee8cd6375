#include "accounttool.h"

#include "accountcommands.h"
#include "terminal.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QLoggingCategory>

#include <algorithm>
#include <cmath>
#include <vector>

namespace vn::tools {

namespace {

constexpr int DefaultWaitSeconds = 5;
constexpr int MaximumWaitSeconds = 600;
// Qt's own width for the descriptions of options; the commands' descriptions match it.
constexpr int HelpWidth = 79;

/// One form of a command: the words that call it, what it takes, what runs it and what it does.
struct Command
{
    QString name;          // "services get"
    QString form;          // the option that selects this form of the command ("key"), if any
    QString arguments;     // "NAME PATH": one word for each argument
    QString argumentsSaid; // how a sentence names the arguments; "no arguments" when empty
    QStringList options;   // the command options this form goes with, besides its form
    int (AccountCommands::*run)(const QStringList &arguments);
    QString description;
};

const QList<QCommandLineOption> &programOptions()
{
    static const QList<QCommandLineOption> options = {
        {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help.")},
        {{QStringLiteral("v"), QStringLiteral("version")}, QStringLiteral("Show the version.")},
        {QStringLiteral("profile"), QStringLiteral("Use the profile NAME instead of \"default\"."),
         QStringLiteral("NAME")},
        {QStringLiteral("profile-location"),
         QStringLiteral("Keep profiles below DIR (sets VANTRO_PROFILE_LOCATION)."), QStringLiteral("DIR")},
        {QStringLiteral("wait"),
         QStringLiteral("Longest wait for the service's check and data, 1 to %1 (default %2).")
             .arg(MaximumWaitSeconds)
             .arg(DefaultWaitSeconds),
         QStringLiteral("SECONDS")},
        {QStringLiteral("verbose"),
         QStringLiteral("Show the library's log lines (categories vantro.*) on standard error.")},
    };
    return options;
}

const QList<QCommandLineOption> &commandOptions()
{
    static const QList<QCommandLineOption> options = {
        {QStringLiteral("json"), QStringLiteral("Print the result as JSON.")},
        {QStringLiteral("password-stdin"),
         QStringLiteral("Read the password from the first line of standard input instead of asking.")},
        {QStringLiteral("passphrase-stdin"),
         QStringLiteral("Read the passphrase of an encrypted key from the first line of standard input "
                        "instead of asking.")},
        {QStringLiteral("no-persist"),
         QStringLiteral("A one-shot session: sign in, show who is signed in, and sign out again, keeping "
                        "nothing.")},
        {QStringLiteral("key"), QStringLiteral("Sign in as a device with the private key in FILE (PEM)."),
         QStringLiteral("FILE")},
    };
    return options;
}

const std::vector<Command> &commands()
{
    const QString json = QStringLiteral("json");
    const QString noPersist = QStringLiteral("no-persist");
    static const std::vector<Command> table = {
        {QStringLiteral("login"),
         QString(),
         QStringLiteral("USER"),
         QStringLiteral("one user name"),
         {QStringLiteral("password-stdin"), noPersist, json},
         &AccountCommands::login,
         QStringLiteral("Sign in as USER. \"USER>>TARGET\" signs in as USER and acts as TARGET (USER must "
                        "be allowed to). The password is asked on the terminal without echo. The login is "
                        "kept in the profile for the following commands.")},
        {QStringLiteral("login"),
         QStringLiteral("key"),
         QString(),
         QStringLiteral("no user name"),
         {QStringLiteral("passphrase-stdin"), noPersist, json},
         &AccountCommands::loginWithKey,
         QStringLiteral("Sign in as a device with the private key in FILE, which the service knows by its "
                        "public half. The key never leaves this machine: it answers the service's "
                        "challenge. The passphrase of an encrypted key is asked on the terminal without "
                        "echo.")},
        {QStringLiteral("logout"),
         QString(),
         QString(),
         QString(),
         {},
         &AccountCommands::logout,
         QStringLiteral("End this client's login at the service and clear the profile but for the "
                        "client's own id and key. Without the service the login is still cleared here.")},
        {QStringLiteral("status"),
         QString(),
         QString(),
         QString(),
         {json},
         &AccountCommands::status,
         QStringLiteral("Status, online, client id, service URL, session, consumer with permissions (as "
                        "flag names) and roles, whether the identity chain verifies, and the resources "
                        "counted by type.")},
        {QStringLiteral("resources"),
         QString(),
         QString(),
         QString(),
         {json},
         &AccountCommands::resources,
         QStringLiteral("Each resource: type, id, owner, priority, whether its signature verified, and the "
                        "public members of its payload. Credentials and other secrets are never shown.")},
        {QStringLiteral("services"),
         QString(),
         QString(),
         QString(),
         {json},
         &AccountCommands::services,
         QStringLiteral("Each service the account may use: name, URL and id. Services are enabled only by "
                        "the program that uses them, so here their status is \"disabled\" until 'services "
                        "get'.")},
        {QStringLiteral("services get"),
         QString(),
         QStringLiteral("NAME PATH"),
         QStringLiteral("a service name and a path"),
         {},
         &AccountCommands::getFromService,
         QStringLiteral("Enable the service NAME, wait until its token has arrived, and GET PATH (resolved "
                        "against the service's URL) with it; prints the answer's body. The token is never "
                        "shown.")},
        {QStringLiteral("logins"),
         QString(),
         QString(),
         QString(),
         {json},
         &AccountCommands::logins,
         QStringLiteral("The account's logins at the service; \"*\" marks this client's own.")},
        {QStringLiteral("logins end"),
         QString(),
         QStringLiteral("ID"),
         QStringLiteral("one login id"),
         {},
         &AccountCommands::endLogin,
         QStringLiteral("End another login of the account (this client's own ends with logout).")},
    };
    return table;
}

// The parts of the help that describe no single option or command.
const char WaitingHelp[] =
    "The library restores a saved login from the profile and checks it with the service at once; every "
    "command but login and logout waits for that check to bring the account online, and otherwise says "
    "why it did not (unreachable, failing, or login ended). Then status, resources, services and services "
    "get, and login after signing in, wait until the consumer, the identity chain and the resources have "
    "arrived; the library fetches them right after the check. Those waits end after --wait seconds "
    "together; status and resources then show what the profile holds and say what is missing. services "
    "get waits another --wait seconds for the service's token. Signing in and out and the requests of "
    "logins, logins end and services get are bounded by their own request time-outs.";
const char ExitStatusHelp[] = "0 success, 1 failure (sign-in refused, service unreachable or failing), 2 "
                              "usage error, 3 not signed in (also when the service has ended the login).";
const char *const EnvironmentHelp[][2] = {
    {"VANTRO_ACCOUNT_CONFIG", "the signed configuration naming the service (default: built in)"},
    {"VANTRO_PROFILE_LOCATION", "where profiles live (default: the user's data folder)"},
};

/// @p text in lines of at most HelpWidth columns, each indented by @p indent spaces.
QString wrapped(const QString &text, int indent)
{
    const QString margin(indent, QLatin1Char(' '));
    QString result;
    QString line;
    for (const QString &word : text.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (!line.isEmpty() && indent + line.size() + 1 + word.size() > HelpWidth) {
            result += margin + line + QLatin1Char('\n');
            line.clear();
        }
        line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
    }
    return result + margin + line + QLatin1Char('\n');
}

/// "--key FILE" for the option named @p name, as the help writes it.
QString optionUsage(const QString &name)
{
    for (const QCommandLineOption &option : commandOptions()) {
        if (option.names().contains(name)) {
            const QString value = option.valueName();
            return QStringLiteral("--") + name + (value.isEmpty() ? QString() : QLatin1Char(' ') + value);
        }
    }
    return QStringLiteral("--") + name;
}

/// "login --key FILE", "services get NAME PATH": how the command is called.
QString synopsis(const Command &command)
{
    QStringList parts = {command.name};
    if (!command.form.isEmpty()) {
        parts.append(optionUsage(command.form));
    }
    if (!command.arguments.isEmpty()) {
        parts.append(command.arguments);
    }
    return parts.join(QLatin1Char(' '));
}

/// An option that selects a form of a command goes with each of its forms: it chooses among them.
bool goesWith(const Command &command, const QString &option)
{
    if (command.options.contains(option)) {
        return true;
    }
    return std::any_of(commands().begin(), commands().end(), [&](const Command &other) {
        return other.name == command.name && other.form == option;
    });
}

/// "login, status and logins": the commands that @p option goes with, a command named once when
/// the option goes with every form of it.
QString commandsTaking(const QString &option)
{
    QStringList names;
    for (const Command &command : commands()) {
        if (!goesWith(command, option)) {
            continue;
        }
        const bool everyForm = std::all_of(commands().begin(), commands().end(), [&](const Command &other) {
            return other.name != command.name || goesWith(other, option);
        });
        const QString name = everyForm ? command.name : synopsis(command);
        if (!names.contains(name)) {
            names.append(name);
        }
    }
    const QString last = names.takeLast();
    return names.isEmpty() ? last : names.join(QStringLiteral(", ")) + QStringLiteral(" and ") + last;
}

/// Finds the command that @p parser's arguments call and what follows its name; else the
/// one-sentence reason why they call none.
QString findCommand(const QCommandLineParser &parser, const Command **found, QStringList *arguments)
{
    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty()) {
        return QStringLiteral("No command given.");
    }
    // The longest name the words spell ("services get" before "services"), then the form chosen.
    const auto rank = [](const Command &command) {
        return command.name.count(QLatin1Char(' ')) * 2 + (command.form.isEmpty() ? 0 : 1);
    };
    const Command *command = nullptr;
    for (const Command &candidate : commands()) {
        const int words = candidate.name.count(QLatin1Char(' ')) + 1;
        if (positional.mid(0, words).join(QLatin1Char(' ')) == candidate.name &&
            (candidate.form.isEmpty() || parser.isSet(candidate.form)) &&
            (!command || rank(candidate) > rank(*command))) {
            command = &candidate;
        }
    }
    if (!command) {
        return QStringLiteral("Unknown command \"%1\".").arg(positional.first());
    }
    for (const QCommandLineOption &option : commandOptions()) {
        const QString name = option.names().constFirst();
        if (parser.isSet(name) && !goesWith(*command, name)) {
            return QStringLiteral("--%1 goes with %2 only.").arg(name, commandsTaking(name));
        }
    }
    *arguments = positional.mid(command->name.count(QLatin1Char(' ')) + 1);
    if (arguments->size() != command->arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts).size()) {
        const QString calledAs =
            command->form.isEmpty() ? command->name : command->name + QStringLiteral(" --") + command->form;
        return QStringLiteral("%1 takes %2, as in 'vantro-account %3'.")
            .arg(calledAs,
                 command->argumentsSaid.isEmpty() ? QStringLiteral("no arguments") : command->argumentsSaid,
                 synopsis(*command));
    }
    *found = command;
    return QString();
}

/// Checks the values of the options and takes them into @p settings; else the one-sentence reason.
QString readSettings(const QCommandLineParser &parser, CommandSettings *settings)
{
    double waitSeconds = DefaultWaitSeconds;
    if (parser.isSet(QStringLiteral("wait"))) {
        bool isNumber = false;
        const QString wait = parser.value(QStringLiteral("wait"));
        waitSeconds = wait.toDouble(&isNumber);
        if (!isNumber || !std::isfinite(waitSeconds) || waitSeconds < 1 || waitSeconds > MaximumWaitSeconds) {
            return QStringLiteral("--wait takes seconds from 1 to %1, not \"%2\".")
                .arg(MaximumWaitSeconds)
                .arg(wait);
        }
    }
    const QString profile = parser.value(QStringLiteral("profile"));
    if (parser.isSet(QStringLiteral("profile")) &&
        (profile.isEmpty() || profile.contains(QLatin1Char('/')) || profile.startsWith(QLatin1Char('.')))) {
        return QStringLiteral("--profile takes a plain name without \"/\" or a leading \".\", not \"%1\".")
            .arg(profile);
    }
    if (parser.isSet(QStringLiteral("profile-location")) &&
        parser.value(QStringLiteral("profile-location")).isEmpty()) {
        return QStringLiteral("--profile-location takes a folder.");
    }
    settings->keyFile = parser.value(QStringLiteral("key"));
    if (parser.isSet(QStringLiteral("key")) && settings->keyFile.isEmpty()) {
        return QStringLiteral("--key takes a key file.");
    }
    settings->waitMilliseconds = int(waitSeconds * 1000);
    settings->json = parser.isSet(QStringLiteral("json"));
    settings->persistent = !parser.isSet(QStringLiteral("no-persist"));
    settings->secretFromStandardInput =
        parser.isSet(QStringLiteral("password-stdin")) || parser.isSet(QStringLiteral("passphrase-stdin"));
    return QString();
}

QString helpText(const QCommandLineParser &parser)
{
    QString text = parser.helpText() + QStringLiteral("\nCommands:\n");
    for (const Command &command : commands()) {
        QString usage = synopsis(command);
        for (const QString &option : command.options) {
            usage += QStringLiteral(" [%1]").arg(optionUsage(option));
        }
        text += QStringLiteral("  ") + usage + QLatin1Char('\n') + wrapped(command.description, 6);
    }
    text += QStringLiteral("\nWaiting for the service:\n") + wrapped(QString::fromUtf8(WaitingHelp), 2);
    text += QStringLiteral("\nExit status:\n") + wrapped(QString::fromUtf8(ExitStatusHelp), 2);
    text += QStringLiteral("\nEnvironment:\n");
    for (const auto &[variable, meaning] : EnvironmentHelp) {
        text += QStringLiteral("  %1  %2\n")
                    .arg(QString::fromLatin1(variable).leftJustified(23), QString::fromUtf8(meaning));
    }
    return text;
}

} // namespace

int AccountTool::run(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Sign in to the account service, see what it says about the account, and sign out."));
    parser.addOptions(programOptions());
    parser.addOptions(commandOptions());
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("One of the commands below."),
                                 QStringLiteral("COMMAND [ARGUMENTS]"));
    if (!parser.parse(arguments)) {
        return Failures::usageError(parser.errorText());
    }
    if (parser.isSet(QStringLiteral("help"))) {
        Terminal::printOut(helpText(parser));
        return Success;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        Terminal::printOut(QStringLiteral("vantro-account %1\n").arg(QCoreApplication::applicationVersion()));
        return Success;
    }

    const Command *command = nullptr;
    QStringList commandArguments;
    CommandSettings settings;
    QString problem = findCommand(parser, &command, &commandArguments);
    if (problem.isEmpty()) {
        problem = readSettings(parser, &settings);
    }
    if (!problem.isEmpty()) {
        return Failures::usageError(problem);
    }

    // Everything that decides which profile the library opens comes before the first Account.
    if (parser.isSet(QStringLiteral("profile-location"))) {
        qputenv("VANTRO_PROFILE_LOCATION",
                QFile::encodeName(QDir(parser.value(QStringLiteral("profile-location"))).absolutePath()));
    }
    if (parser.isSet(QStringLiteral("profile"))) {
        QCoreApplication::instance()->setProperty("profile", parser.value(QStringLiteral("profile")));
    }
    // The library's own lines would drown the one-sentence messages; --verbose brings them back.
    QLoggingCategory::setFilterRules(parser.isSet(QStringLiteral("verbose"))
                                         ? QStringLiteral("vantro.*=true")
                                         : QStringLiteral("vantro.*=false"));

    AccountCommands handlers(settings);
    return (handlers.*command->run)(commandArguments);
}

} // namespace vn::tools
