#pragma once

// What the benchmarks share. A subject and its floor alternate in rounds of the same run, so that a
// busy neighbour on the shared machine inflates neither side more than the other, and every figure
// is printed in one line format, which bench/run-all.sh collects:
//
//   bench <name>: <subject> <value> <unit> vs <floor> <value> <unit> = <ratio>x (goal <= X; <clock>)
//
// A missed goal adds "GOAL MISSED" to its line: a finding, not a failure of the benchmark.

#include <QByteArray>
#include <QJsonArray>

#include <openssl/types.h>

#include <functional>
#include <memory>

namespace bench {

/// Measured calls add what they compute here, so that the optimiser keeps the work.
extern volatile long long sink;

/// Thread CPU time leaves out other processes' time slices; wall time is for work on other
/// threads or on the network.
enum class Clock { ThreadCpu, Wall };

struct Side
{
    const char *label;
    std::function<void()> run;
};

struct Rounds
{
    int rounds;
    int callsPerRound = 1;
    int warmUpRounds = 0;
    Clock clock = Clock::ThreadCpu;
};

/// Alternates @p subject and @p floor round by round and prints the medians of their time per call
/// and their ratio. @p afterSubject runs after every subject round, untimed.
void compare(const char *name, const Side &subject, const Side &floor, const Rounds &rounds, double goal,
             const std::function<void()> &afterSubject = {});
/// A figure without a floor: "bench <name>: <subject> <value> <unit> (goal <= X)", or ">=".
void figure(const char *name, const char *subject, double value, const char *unit, double goal,
            bool higherIsBetter = false);
/// CPU time of the whole process so far, user and system, in seconds.
double processCpuSeconds();
/// Runs the event loop (deferred deletions included) until @p condition holds (true) or
/// @p milliseconds have passed (false).
bool waitUntil(const std::function<bool()> &condition, int milliseconds);

/// The number after @p option on the command line ("--rounds 20"), or @p fallback.
int option(int argc, char *argv[], const char *option, int fallback);
[[noreturn]] void fail(const char *name, const char *what);

/// @p count resource records as the account service keeps them before it signs them: "id", "type"
/// (a database, author credentials, device credentials and a service, in turn) and a "payload" of
/// that type, each credential with a secret of its own. The account benchmarks restore and refresh
/// these.
QJsonArray resourceRecords(int count);

// The bare OpenSSL calls that floors are made of. verifyPss() checks RSASSA-PSS with SHA-256 and a
// 32-byte salt, as signed JSON is signed.
using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)>;
Key readPublicKey(const QByteArray &pem);
Key readPrivateKey(const QByteArray &pem);
bool verifyPss(EVP_PKEY *key, const QByteArray &message, const QByteArray &signature);

} // namespace bench
