#include "accounttool.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vantro-account"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VANTRO_VERSION));
    const int exitCode = vn::tools::AccountTool().run(QCoreApplication::arguments());
    // Requests without a parent delete themselves once they have reported; let the last of them go
    // before the application object does.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return exitCode;
}
