#include "benchsupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <sys/resource.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace bench {

volatile long long sink = 0;

namespace {

double nanoseconds(Clock clock)
{
    timespec now;
    clock_gettime(clock == Clock::ThreadCpu ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void endLine(double value, double goal, bool higherIsBetter, const char *how)
{
    const bool met = higherIsBetter ? value >= goal : value <= goal;
    std::printf(" (goal %s %g%s)%s\n", higherIsBetter ? ">=" : "<=", goal, how, met ? "" : " GOAL MISSED");
    std::fflush(stdout);
}

template<typename Read>
Key readKey(const QByteArray &pem, Read read)
{
    BIO *bio = BIO_new_mem_buf(pem.constData(), int(pem.size()));
    Key key(read(bio, nullptr, nullptr, nullptr), &EVP_PKEY_free);
    BIO_free(bio);
    return key;
}

} // namespace

void compare(const char *name, const Side &subject, const Side &floor, const Rounds &rounds, double goal,
             const std::function<void()> &afterSubject)
{
    const auto perCall = [&rounds](const std::function<void()> &run) {
        const double start = nanoseconds(rounds.clock);
        for (int call = 0; call < rounds.callsPerRound; ++call) {
            run();
        }
        return (nanoseconds(rounds.clock) - start) / rounds.callsPerRound;
    };
    std::vector<double> subjectTimes;
    std::vector<double> floorTimes;
    for (int round = -rounds.warmUpRounds; round < rounds.rounds; ++round) {
        const double subjectTime = perCall(subject.run);
        if (afterSubject) {
            afterSubject();
        }
        const double floorTime = perCall(floor.run);
        if (round >= 0) {
            subjectTimes.push_back(subjectTime);
            floorTimes.push_back(floorTime);
        }
    }
    const double subjectMedian = median(subjectTimes);
    const double floorMedian = median(floorTimes);
    const bool milliseconds = floorMedian >= 1e6;
    const double scale = milliseconds ? 1e6 : 1e3;
    const char *unit = milliseconds ? "ms" : "us";
    std::printf("bench %s: %s %.*f %s vs %s %.*f %s = %.3fx", name, subject.label, milliseconds ? 3 : 1,
                subjectMedian / scale, unit, floor.label, milliseconds ? 3 : 1, floorMedian / scale, unit,
                subjectMedian / floorMedian);
    char how[64];
    std::snprintf(how, sizeof how, "; %s, median of %d", rounds.clock == Clock::Wall ? "wall" : "thread CPU",
                  rounds.rounds);
    endLine(subjectMedian / floorMedian, goal, false, how);
}

void figure(const char *name, const char *subject, double value, const char *unit, double goal,
            bool higherIsBetter)
{
    std::printf(value >= 100 ? "bench %s: %s %.0f %s" : "bench %s: %s %.3g %s", name, subject, value, unit);
    endLine(value, goal, higherIsBetter, "");
}

int option(int argc, char *argv[], const char *option, int fallback)
{
    for (int index = 1; index + 1 < argc; ++index) {
        if (std::strcmp(argv[index], option) == 0) {
            return std::max(1, std::atoi(argv[index + 1]));
        }
    }
    return fallback;
}

void fail(const char *name, const char *what)
{
    std::fflush(stdout);
    std::fprintf(stderr, "bench %s: FAILED: %s\n", name, what);
    std::exit(1);
}

double processCpuSeconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

bool waitUntil(const std::function<bool()> &condition, int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

QJsonArray resourceRecords(int count)
{
    static const char *const types[] = {"vantro.resource.Database", "vantro.resource.AuthorCredentials",
                                        "vantro.resource.DeviceCredentials", "vantro.resource.Service"};
    QJsonArray records;
    for (int index = 0; index < count; ++index) {
        const QString number = QString::number(index);
        const QString secret = QUuid::createUuid().toString();
        const QString payloads[] = {
            QStringLiteral(R"({"server": "https://db%1.example.net/", "name": "inventory-%1",)"
                           R"( "authoringOptions": {"pageSize": 50}})")
                .arg(number),
            QStringLiteral(
                R"({"type": "bearer", "realm": "files%1.example.net", "credentials": {"token": "%2"}})")
                .arg(number, secret),
            QStringLiteral(R"({"type": "basic", "realm": "db%1.example.net",)"
                           R"( "credentials": {"userName": "device-%1", "password": "%2"}})")
                .arg(number, secret),
            QStringLiteral(R"({"url": "https://service%1.example.net/", "service": "reports-%1"})")
                .arg(number)};
        records.append(QJsonObject{
            {QStringLiteral("id"), QUuid::createUuid().toString(QUuid::WithoutBraces)},
            {QStringLiteral("type"), QLatin1String(types[index % 4])},
            {QStringLiteral("payload"), QJsonDocument::fromJson(payloads[index % 4].toUtf8()).object()}});
    }
    return records;
}

Key readPublicKey(const QByteArray &pem)
{
    return readKey(pem, PEM_read_bio_PUBKEY);
}

Key readPrivateKey(const QByteArray &pem)
{
    return readKey(pem, PEM_read_bio_PrivateKey);
}

bool verifyPss(EVP_PKEY *key, const QByteArray &message, const QByteArray &signature)
{
    int saltLength = 32;
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_PAD_MODE, const_cast<char *>("pss"), 0),
        OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_MGF1_DIGEST, const_cast<char *>("SHA256"), 0),
        OSSL_PARAM_construct_int(OSSL_SIGNATURE_PARAM_PSS_SALTLEN, &saltLength),
        OSSL_PARAM_construct_end(),
    };
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX *)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    return EVP_DigestVerifyInit_ex(context.get(), nullptr, "SHA256", nullptr, nullptr, key, parameters) ==
               1 &&
           EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char *>(signature.constData()),
                            size_t(signature.size()),
                            reinterpret_cast<const unsigned char *>(message.constData()),
                            size_t(message.size())) == 1;
}

} // namespace bench
