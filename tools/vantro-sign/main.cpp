#include "signtool.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vantro-sign"));
    return vn::tools::SignTool().run(QCoreApplication::arguments());
}
