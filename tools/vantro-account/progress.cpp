#include "progress.h"

#include "terminal.h"

#include <Vantro/request.h>

#include <QEventLoop>
#include <QTimer>

namespace vn::tools {

namespace {

// Often enough for a spinner to look alive, rare enough to cost nothing; it is also how soon a
// condition that became true is noticed.
constexpr int TickMilliseconds = 80;

const char16_t SpinnerFrames[] = u"|/-\\";

} // namespace

bool Progress::waitUntil(const QString &activity, const std::function<bool()> &done, QDeadlineTimer deadline)
{
    if (done()) {
        return true;
    }

    const bool animated = Terminal::isErrorTerminal();
    if (!animated) {
        Terminal::printError(activity + QStringLiteral("...\n"));
    }

    int frame = 0;
    QEventLoop loop;
    QTimer ticker;
    ticker.setInterval(TickMilliseconds);
    QObject::connect(&ticker, &QTimer::timeout, &loop, [&] {
        if (done() || deadline.hasExpired()) {
            loop.quit();
            return;
        }
        if (animated) {
            const QChar spinner(SpinnerFrames[frame++ % 4]);
            Terminal::printError(QStringLiteral("\r") + spinner + QLatin1Char(' ') + activity);
        }
    });
    ticker.start();
    loop.exec();

    if (animated) {
        Terminal::printError(QStringLiteral("\r\033[K"));
    }
    return done();
}

Progress::Reply Progress::runRequest(vn::Request *request, const QString &activity)
{
    request->setSuppressErrors(true);
    Reply reply;
    bool finished = false;
    // The request deletes itself after finished(); what it says is copied out before that.
    QObject::connect(request, &vn::Request::finished, request, [&, request] {
        finished = true;
        reply.responseCode = request->responseCode();
        reply.body = request->rawResponse();
    });
    waitUntil(activity, [&finished] { return finished; });
    return reply;
}

} // namespace vn::tools
