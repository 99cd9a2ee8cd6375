// vantro-account-devservice: the development account service as a program.

#include "devservice.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>
#include <cstdio>

namespace {

constexpr int ExitFailure = 1;
constexpr int ExitUsage = 2;

int fail(const QString &message, int code = ExitFailure)
{
    std::fprintf(stderr, "vantro-account-devservice: %s\n", qPrintable(message));
    return code;
}

bool readNumber(const QCommandLineParser &parser, const QString &option, int minimum, int maximum, int *value)
{
    if (!parser.isSet(option)) {
        return true;
    }
    bool ok = false;
    *value = parser.value(option).toInt(&ok);
    return ok && *value >= minimum && *value <= maximum;
}

} // namespace

int main(int argc, char *argv[])
{
    // The service's threads inherit this mask, so SIGINT and SIGTERM reach only the sigwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vantro-account-devservice"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "The development account service: serves the account API with a demo or a scenario file. "
        "Development only: its keys are public."));
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("listen"), QStringLiteral("Address to listen on (default 127.0.0.1)."),
         QStringLiteral("address"), QStringLiteral("127.0.0.1")},
        {QStringLiteral("port"), QStringLiteral("Port to listen on; 0 picks a free one (default 8421)."),
         QStringLiteral("port"), QString::number(vn::devservice::DevService::DefaultPort)},
        {QStringLiteral("services-port"),
         QStringLiteral("Port of the first played service, the next one on the next port; 0 (default) "
                        "picks free ones."),
         QStringLiteral("port")},
        {QStringLiteral("base"), QStringLiteral("Path below which the service answers, e.g. /base."),
         QStringLiteral("path")},
        {QStringLiteral("scenario"), QStringLiteral("Scenario file to serve instead of the demo."),
         QStringLiteral("file")},
        {QStringLiteral("token-lifetime"), QStringLiteral("Seconds an access token lives."),
         QStringLiteral("seconds")},
        {QStringLiteral("service-token-lifetime"), QStringLiteral("Seconds a service token lives."),
         QStringLiteral("seconds")},
        {QStringLiteral("write-config"),
         QStringLiteral("Write an account configuration for this service, signed with the development key."),
         QStringLiteral("path")},
    });
    if (!parser.parse(QCoreApplication::arguments())) {
        return fail(parser.errorText(), ExitUsage);
    }
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return 0;
    }
    if (!parser.positionalArguments().isEmpty()) {
        return fail(QStringLiteral("unexpected argument ") + parser.positionalArguments().constFirst(),
                    ExitUsage);
    }

    int port = vn::devservice::DevService::DefaultPort;
    int servicesPort = 0;
    int tokenLifetime = vn::devservice::DevService::DefaultTokenLifetime;
    int serviceTokenLifetime = vn::devservice::DevService::DefaultServiceTokenLifetime;
    constexpr int MaximumLifetime = 10 * 365 * 24 * 3600;
    if (!readNumber(parser, QStringLiteral("port"), 0, 65535, &port) ||
        !readNumber(parser, QStringLiteral("services-port"), 0, 65535, &servicesPort) ||
        !readNumber(parser, QStringLiteral("token-lifetime"), 1, MaximumLifetime, &tokenLifetime) ||
        !readNumber(parser, QStringLiteral("service-token-lifetime"), 1, MaximumLifetime,
                    &serviceTokenLifetime)) {
        return fail(QStringLiteral("the ports take 0 to 65535, the lifetimes a positive number of seconds"),
                    ExitUsage);
    }

    vn::devservice::Scenario scenario = vn::devservice::Scenario::demo();
    if (parser.isSet(QStringLiteral("scenario"))) {
        QString error;
        scenario = vn::devservice::Scenario::fromFile(parser.value(QStringLiteral("scenario")), &error);
        if (!scenario.isValid()) {
            return fail(QStringLiteral("invalid scenario: ") + error);
        }
    }

    vn::devservice::DevService service(scenario);
    // A long-running service has no reader for its journal of requests.
    service.setJournalLimit(0);
    service.setBasePath(parser.value(QStringLiteral("base")));
    service.setTokenLifetime(tokenLifetime);
    service.setServiceTokenLifetime(serviceTokenLifetime);
    service.setServicesPort(quint16(servicesPort));
    if (!service.listen(parser.value(QStringLiteral("listen")), quint16(port))) {
        return fail(QStringLiteral("cannot listen on ") + parser.value(QStringLiteral("listen")) +
                    QLatin1String(" port ") + QString::number(port) +
                    (servicesPort == 0
                         ? QString()
                         : QLatin1String(" or the ports from ") + QString::number(servicesPort)));
    }
    if (parser.isSet(QStringLiteral("write-config"))) {
        QString error;
        if (!service.writeConfiguration(parser.value(QStringLiteral("write-config")), &error)) {
            return fail(QStringLiteral("cannot write the configuration: ") + error);
        }
    }
    std::printf("listening on %s\n", qPrintable(service.url().toString()));
    for (const vn::devservice::Scenario::Resource &resource : scenario.resources()) {
        if (resource.isPlayedService()) {
            std::printf("service %s on %s\n", qPrintable(resource.serviceName()),
                        qPrintable(service.playedServiceUrl(resource.serviceName()).toString()));
        }
    }
    std::fflush(stdout);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    service.stop();
    return 0;
}
