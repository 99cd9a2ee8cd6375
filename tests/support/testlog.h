#pragma once

#include <QStringList>

namespace vn::test {

/// What was logged since collecting began, as "category: message" (debug where its category is on),
/// for a test to count warnings or search for secrets in; tests clear it as they need.
inline QStringList &loggedMessages()
{
    static QStringList messages;
    return messages;
}

/// Collects into loggedMessages() from now on. Messages (debug aside) still go on to the previous
/// handler, where QTest::ignoreMessage sees them.
inline void collectLogMessages()
{
    static const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &context, const QString &message) {
            loggedMessages().append(QLatin1String(context.category) + QLatin1String(": ") + message);
            if (type != QtDebugMsg) {
                previous(type, context, message);
            }
        });
}

/// Collects into loggedMessages() from now on and passes nothing on: for lines that may hold a
/// secret, which then never reaches the test's own output.
inline void collectLogMessagesOnly()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &context, const QString &message) {
        loggedMessages().append(QLatin1String(context.category) + QLatin1String(": ") + message);
    });
}

} // namespace vn::test
