// Runs one configuration load in a process of its own, so that tests can watch the fatal paths end
// the process. "config" (the default) prints the service URL, "root" builds the root identity and
// prints its uuid; reaching the output means nothing was fatal.
#include <VantroAccount/accountconfiguration.h>
#include <VantroAccount/rootidentity.h>

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QTextStream out(stdout);
    if (arguments.value(1) == QLatin1String("root")) {
        const vn::account::RootIdentity root(nullptr);
        out << root.uuid() << Qt::endl;
    } else {
        out << vn::account::AccountConfiguration::serviceUrl().toString() << Qt::endl;
    }
    return 0;
}
