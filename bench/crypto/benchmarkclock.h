#pragma once

#include <algorithm>
#include <limits>
#include <utility>

#include <time.h>

/// CPU time of the calling thread in nanoseconds. Unlike wall-clock time it does not count the
/// time slices that other processes on the shared machine take from us.
inline double threadCpuNanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

/// Nanoseconds per call of @p baseline and of @p candidate. The two alternate in short rounds and
/// each keeps its best round, so that a busy neighbour on the shared machine inflates neither side
/// of the comparison more than the other.
template<typename Baseline, typename Candidate>
std::pair<double, double> nanosecondsPerCall(int iterations, int rounds, Baseline baseline,
                                             Candidate candidate)
{
    const auto measure = [iterations](auto &function) {
        const double start = threadCpuNanoseconds();
        for (int i = 0; i < iterations; ++i)
            function();
        return (threadCpuNanoseconds() - start) / iterations;
    };
    double bestBaseline = std::numeric_limits<double>::max();
    double bestCandidate = std::numeric_limits<double>::max();
    for (int round = 0; round < rounds; ++round) {
        bestBaseline = std::min(bestBaseline, measure(baseline));
        bestCandidate = std::min(bestCandidate, measure(candidate));
    }
    return {bestBaseline, bestCandidate};
}
