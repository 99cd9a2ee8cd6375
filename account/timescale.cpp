#include "timescale_p.h"

#include <QDateTime>

#include <atomic>
#include <cmath>
#include <limits>

namespace vn::account {

namespace {

std::atomic<double> s_factor{1.0};

} // namespace

void TimeScale::setFactor(double factor)
{
    if (factor > 0 && std::isfinite(factor)) {
        s_factor.store(factor, std::memory_order_relaxed);
    }
}

double TimeScale::factor()
{
    return s_factor.load(std::memory_order_relaxed);
}

qint64 TimeScale::delay(qint64 milliseconds)
{
    const double factor = TimeScale::factor();
    return factor == 1.0 ? milliseconds : qint64(std::llround(double(milliseconds) * factor));
}

int TimeScale::interval(int milliseconds)
{
    return int(qBound<qint64>(1, delay(milliseconds), std::numeric_limits<int>::max()));
}

qint64 TimeScale::now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

} // namespace vn::account
