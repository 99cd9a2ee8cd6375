#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QtGlobal>

namespace vn::account {

/// The one place where the account's timer intervals and refresh delays become real time.
///
/// Production runs at factor 1: every delay is the one written in the code. Tests shorten the
/// schedule (refresh, retry, renewal) by a factor so that minutes pass in seconds; nothing outside
/// the test programs calls setFactor(), and no environment variable reaches it. Internal to the
/// library; exported only in builds with the tests.
class VANTROACCOUNT_AUTOTEST_EXPORT TimeScale
{
public:
    TimeScale() = delete;

    /// Multiplies every later delay and timer interval by @p factor (greater than 0; anything else
    /// is ignored). Call it before the account objects that should follow it are made.
    static void setFactor(double factor);
    static double factor();

    /// @p milliseconds as a delay on the scaled clock.
    static qint64 delay(qint64 milliseconds);
    /// @p milliseconds as a timer interval on the scaled clock, never below 1 ms.
    static int interval(int milliseconds);
    /// Milliseconds since the epoch: the clock against which delays are due.
    static qint64 now();
};

} // namespace vn::account
