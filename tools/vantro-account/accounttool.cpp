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
#include <iterator>

namespace vn::tools {

namespace {

// As the help of --wait says.
constexpr int DefaultWaitSeconds = 5;
constexpr int MaximumWaitSeconds = 600;
// Qt's own width for the descriptions of options; the commands' descriptions match it.
constexpr int HelpWidth = 79;

struct Option
{
    const char *names; // separated by spaces
    const char *valueName;
    const char *description;
};

const Option Options[] = {
    {"h help", "", "Show this help."},
    {"v version", "", "Show the version."},
    {"profile", "NAME", "Use the profile NAME instead of \"default\"."},
    {"profile-location", "DIR", "Keep profiles below DIR (sets VANTRO_PROFILE_LOCATION)."},
    {"wait", "SECONDS", "Longest wait for the service's check and data, 1 to 600 (default 5)."},
    {"verbose", "", "Show the library's log lines (categories vantro.*) on standard error."},
    // Options of some commands only, as the table of commands says.
    {"json", "", "Print the result as JSON."},
    {"password-stdin", "", "Read the password from the first line of standard input instead of asking."},
    {"passphrase-stdin", "",
     "Read the passphrase of an encrypted key from the first line of standard input instead of asking."},
    {"no-persist", "",
     "A one-shot session: sign in, show who is signed in, and sign out again, keeping nothing."},
    {"key", "FILE", "Sign in as a device with the private key in FILE (PEM)."},
};

/// One form of a command: the words that call it, what it takes, what runs it and what it does.
struct Command
{
    const char *name;          // "services get"
    const char *form;          // the option that selects this form of the command ("key"), if any
    const char *arguments;     // "NAME PATH": one word for each argument
    const char *argumentsSaid; // how a sentence names them, for the message when they do not fit
    const char *options;       // the command options this form goes with, besides its form
    int (AccountCommands::*run)(const QStringList &arguments);
    const char *description;
};

const Command Commands[] = {
    {"login", "", "USER", "one user name", "password-stdin no-persist json", &AccountCommands::login,
     "Sign in as USER. \"USER>>TARGET\" signs in as USER and acts as TARGET (USER must be allowed to). The "
     "password is asked on the terminal without echo. The login is kept in the profile for the following "
     "commands."},
    {"login", "key", "", "no user name", "passphrase-stdin no-persist json", &AccountCommands::loginWithKey,
     "Sign in as a device with the private key in FILE, which the service knows by its public half. The key "
     "never leaves this machine: it answers the service's challenge. The passphrase of an encrypted key is "
     "asked on the terminal without echo."},
    {"logout", "", "", "no arguments", "", &AccountCommands::logout,
     "End this client's login at the service and clear the profile but for the client's own id and key. "
     "Without the service the login is still cleared here."},
    {"status", "", "", "no arguments", "json", &AccountCommands::status,
     "Status, online, client id, service URL, session, consumer with permissions (as flag names) and roles, "
     "whether the identity chain verifies, and the resources counted by type."},
    {"resources", "", "", "no arguments", "json", &AccountCommands::resources,
     "Each resource: type, id, owner, priority, whether its signature verified, and the public members of "
     "its "
     "payload. Credentials and other secrets are never shown."},
    {"services", "", "", "no arguments", "json", &AccountCommands::services,
     "Each service the account may use: name, URL and id. Services are enabled only by the program that uses "
     "them, so here their status is \"disabled\" until 'services get'."},
    {"services get", "", "NAME PATH", "a service name and a path", "", &AccountCommands::getFromService,
     "Enable the service NAME, wait until its token has arrived, and GET PATH (resolved against the "
     "service's "
     "URL) with it; prints the answer's body. The token is never shown."},
    {"logins", "", "", "no arguments", "json", &AccountCommands::logins,
     "The account's logins at the service; \"*\" marks this client's own."},
    {"logins end", "", "ID", "one login id", "", &AccountCommands::endLogin,
     "End another login of the account (this client's own ends with logout)."},
};

// The parts of the help that describe no single option or command.
const char WaitingHelp[] =
    "The library restores a saved login from the profile and checks it with the service at once; every "
    "command but login and logout waits for that check to bring the account online, and otherwise says why "
    "it did not (unreachable, failing, or login ended). Then status, resources, services and services get, "
    "and login after signing in, wait until the consumer, the identity chain and the resources have arrived; "
    "the library fetches them right after the check. Those waits end after --wait seconds together; status "
    "and resources then show what the profile holds and say what is missing. services get waits another "
    "--wait seconds for the service's token. Signing in and out and the requests of logins, logins end and "
    "services get are bounded by their own request time-outs.";
const char ExitStatusHelp[] = "0 success, 1 failure (sign-in refused, service unreachable or failing), 2 "
                              "usage error, 3 not signed in (also when the service has ended the login).";
const char EnvironmentHelp[] =
    "  VANTRO_ACCOUNT_CONFIG    the signed configuration naming the service (default: built in)\n"
    "  VANTRO_PROFILE_LOCATION  where profiles live (default: the user's data folder)\n";

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

/// @p text in lines of at most HelpWidth columns, each indented by @p indent spaces.
QString wrapped(const char *text, int indent)
{
    const QString margin(indent, QLatin1Char(' '));
    QString result;
    QString line;
    for (const QString &word : QString::fromUtf8(text).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
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
    const auto option = std::find_if(std::begin(Options), std::end(Options), [&](const Option &candidate) {
        return words(candidate.names).contains(name);
    });
    return QStringLiteral("--%1 %2").arg(name, QLatin1String(option->valueName)).trimmed();
}

/// "login --key FILE", "services get NAME PATH": how the command is called.
QString synopsis(const Command &command)
{
    return QStringLiteral("%1 %2 %3")
        .arg(QLatin1String(command.name),
             *command.form ? optionUsage(QLatin1String(command.form)) : QString(),
             QLatin1String(command.arguments))
        .simplified();
}

/// An option that selects a form of a command goes with each of its forms: it chooses among them.
bool goesWith(const Command &command, const QString &option)
{
    return words(command.options).contains(option) ||
           std::any_of(std::begin(Commands), std::end(Commands), [&](const Command &other) {
               return qstrcmp(other.name, command.name) == 0 && QLatin1String(other.form) == option;
           });
}

/// The commands that @p option goes with, a command named once when the option goes with every
/// form of it; none for an option of the program.
QStringList commandsTaking(const QString &option)
{
    QStringList names;
    for (const Command &command : Commands) {
        const bool everyForm =
            std::all_of(std::begin(Commands), std::end(Commands), [&](const Command &other) {
                return qstrcmp(other.name, command.name) != 0 || goesWith(other, option);
            });
        const QString name = everyForm ? QString::fromLatin1(command.name) : synopsis(command);
        if (goesWith(command, option) && !names.contains(name)) {
            names.append(name);
        }
    }
    return names;
}

/// "login, status and logins"
QString listed(QStringList names)
{
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
        return words(command.name).size() * 2 + (*command.form ? 1 : 0);
    };
    const Command *command = nullptr;
    for (const Command &candidate : Commands) {
        const QStringList name = words(candidate.name);
        if (positional.mid(0, name.size()) == name &&
            (!*candidate.form || parser.isSet(QLatin1String(candidate.form))) &&
            (!command || rank(candidate) > rank(*command))) {
            command = &candidate;
        }
    }
    if (!command) {
        return QStringLiteral("Unknown command \"%1\".").arg(positional.first());
    }
    for (const Option &option : Options) {
        const QString name = words(option.names).constLast();
        const QStringList taking = commandsTaking(name);
        if (parser.isSet(name) && !taking.isEmpty() && !goesWith(*command, name)) {
            return QStringLiteral("--%1 goes with %2 only.").arg(name, listed(taking));
        }
    }
    *arguments = positional.mid(words(command->name).size());
    if (arguments->size() != words(command->arguments).size()) {
        return QStringLiteral("%1%2 takes %3, as in 'vantro-account %4'.")
            .arg(QLatin1String(command->name),
                 *command->form ? QStringLiteral(" --") + QLatin1String(command->form) : QString(),
                 QLatin1String(command->argumentsSaid), synopsis(*command));
    }
    *found = command;
    return QString();
}

/// Checks the values of the options and takes them into @p settings; else the one-sentence reason.
QString readSettings(const QCommandLineParser &parser, CommandSettings *settings)
{
    const auto isSet = [&parser](const char *name) { return parser.isSet(QLatin1String(name)); };
    const auto value = [&parser](const char *name) { return parser.value(QLatin1String(name)); };
    bool isNumber = true;
    const double waitSeconds = isSet("wait") ? value("wait").toDouble(&isNumber) : DefaultWaitSeconds;
    if (!isNumber || !std::isfinite(waitSeconds) || waitSeconds < 1 || waitSeconds > MaximumWaitSeconds) {
        return QStringLiteral("--wait takes seconds from 1 to %1, not \"%2\".")
            .arg(MaximumWaitSeconds)
            .arg(value("wait"));
    }
    const QString profile = value("profile");
    if (isSet("profile") &&
        (profile.isEmpty() || profile.contains(QLatin1Char('/')) || profile.startsWith(QLatin1Char('.')))) {
        return QStringLiteral("--profile takes a plain name without \"/\" or a leading \".\", not \"%1\".")
            .arg(profile);
    }
    if (isSet("profile-location") && value("profile-location").isEmpty()) {
        return QStringLiteral("--profile-location takes a folder.");
    }
    if (isSet("key") && value("key").isEmpty()) {
        return QStringLiteral("--key takes a key file.");
    }
    settings->waitMilliseconds = int(waitSeconds * 1000);
    settings->json = isSet("json");
    settings->persistent = !isSet("no-persist");
    settings->secretFromStandardInput = isSet("password-stdin") || isSet("passphrase-stdin");
    settings->keyFile = value("key");
    return QString();
}

QString helpText(const QCommandLineParser &parser)
{
    QString text = parser.helpText() + QStringLiteral("\nCommands:\n");
    for (const Command &command : Commands) {
        QString usage = synopsis(command);
        for (const QString &option : words(command.options)) {
            usage += QStringLiteral(" [%1]").arg(optionUsage(option));
        }
        text += QStringLiteral("  ") + usage + QLatin1Char('\n') + wrapped(command.description, 6);
    }
    return text + QStringLiteral("\nWaiting for the service:\n") + wrapped(WaitingHelp, 2) +
           QStringLiteral("\nExit status:\n") + wrapped(ExitStatusHelp, 2) +
           QStringLiteral("\nEnvironment:\n") + QString::fromLatin1(EnvironmentHelp);
}

} // namespace

int AccountTool::run(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Sign in to the account service, see what it says about the account, and sign out."));
    for (const Option &option : Options) {
        parser.addOption(
            {words(option.names), QString::fromUtf8(option.description), QLatin1String(option.valueName)});
    }
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("One of the commands below."),
                                 QStringLiteral("COMMAND [ARGUMENTS]"));
    if (!parser.parse(arguments)) {
        return usageError(parser.errorText());
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
        return usageError(problem);
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
