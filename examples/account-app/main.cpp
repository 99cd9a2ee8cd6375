// The account example: a Qt Quick Controls 2 application that uses every element of the module
// Vantro.Account. See README.md beside this file.
//
//   account-app [--user NAME] [--screenshot FILE.png]
//
// --user signs NAME in at start with the password in the environment variable
// ACCOUNT_APP_PASSWORD (never on the command line, where every user of the machine could read it).
// --screenshot waits until the signed-in account and its logins are on screen, saves the window
// to FILE.png and exits: 0 when the user's name is shown and the picture is not blank, 1 otherwise.

#include <QCommandLineParser>
#include <QGuiApplication>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSet>
#include <QTimer>

#include <cstdio>

namespace {

// More distinct colours than a blank or single-colour window can have.
constexpr int MinimumColours = 16;
constexpr int ScreenshotTimeout = 30000;

int distinctColours(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 2) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < image.width(); x += 2) {
            colours.insert(line[x]);
        }
    }
    return int(colours.size());
}

// Saves the window and says whether it shows what a signed-in user sees.
int takeScreenshot(QQuickWindow *window, const QString &path)
{
    const QImage image = window->grabWindow().convertToFormat(QImage::Format_RGB32);
    if (image.isNull() || !image.save(path)) {
        std::fprintf(stderr, "account-app: the window could not be saved to %s\n", qPrintable(path));
        return 1;
    }
    auto *name = window->findChild<QQuickItem *>(QStringLiteral("userName"));
    const QString shown = name ? name->property("text").toString() : QString();
    const int colours = distinctColours(image);
    std::printf("account-app: saved %s (%dx%d, %d colours); the user's name shown: \"%s\"\n",
                qPrintable(path), image.width(), image.height(), colours, qPrintable(shown));
    const bool visible = name && name->isVisible() && name->width() > 0 && name->opacity() > 0;
    return visible && !shown.isEmpty() && colours >= MinimumColours ? 0 : 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QGuiApplication application(argc, argv);
    application.setApplicationName(QStringLiteral("account-app"));
    application.setApplicationDisplayName(QStringLiteral("Vantro Account example"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("The Vantro account example"));
    parser.addHelpOption();
    const QCommandLineOption user(
        QStringLiteral("user"),
        QStringLiteral("Sign NAME in at start, with the password in ACCOUNT_APP_PASSWORD."),
        QStringLiteral("NAME"));
    const QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                        QStringLiteral("Save the signed-in window to FILE and exit."),
                                        QStringLiteral("FILE"));
    parser.addOption(user);
    parser.addOption(screenshot);
    parser.process(application);

    QQmlApplicationEngine engine;
    // The module as the build tree stages it, and as an install beside this program puts it.
    engine.addImportPath(QStringLiteral(VANTRO_QML_BUILD_DIR));
    engine.addImportPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../lib/qml"));
    engine.rootContext()->setContextProperty(QStringLiteral("startUser"), parser.value(user));
    engine.rootContext()->setContextProperty(QStringLiteral("startPassword"),
                                             qEnvironmentVariable("ACCOUNT_APP_PASSWORD"));
    qunsetenv("ACCOUNT_APP_PASSWORD");
    engine.load(QUrl(QStringLiteral("qrc:/account-app/main.qml")));
    auto *window =
        engine.rootObjects().isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(engine.rootObjects().first());
    if (!window) {
        return 1;
    }

    if (parser.isSet(screenshot)) {
        const QString path = parser.value(screenshot);
        // The window sets "settled" once the account, its data and the logins are shown.
        auto *check = new QTimer(&application);
        QObject::connect(check, &QTimer::timeout, window, [window, path] {
            if (window->property("settled").toBool()) {
                QCoreApplication::exit(takeScreenshot(window, path));
            }
        });
        check->start(250);
        QTimer::singleShot(ScreenshotTimeout, window, [] {
            std::fprintf(stderr, "account-app: the signed-in account did not appear\n");
            QCoreApplication::exit(1);
        });
    }
    return application.exec();
}
