// A writer of the profile killed (SIGKILL) at any instant leaves every entry as one of its two
// generations, whole and private, and no stray file.

#include <Vantro/locations.h>
#include <VantroAccount/accesstoken.h>
#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>
#include <VantroCrypto/privatekey.h>

#include "testio.h"

#include <QtTest>

#include <array>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <variant>

using namespace vn::account;
using vn::crypto::PrivateKey;

namespace {

using Value = std::variant<AccessToken, QJsonObject, QJsonArray, PrivateKey>;

struct Entry
{
    QString name;
    std::array<Value, 2> generations;
};

bool readsBack(const Profile &profile, const QString &name, const Value &value)
{
    return std::visit(
        [&](const auto &expected) {
            using Type = std::decay_t<decltype(expected)>;
            if constexpr (std::is_same_v<Type, AccessToken>) {
                return QByteArray(profile.readToken(name)) == QByteArray(expected);
            } else if constexpr (std::is_same_v<Type, QJsonObject>) {
                return profile.readObject(name) == expected;
            } else if constexpr (std::is_same_v<Type, QJsonArray>) {
                return profile.readArray(name) == expected;
            } else {
                const PrivateKey read = profile.readPrivateKey(name);
                return read.isValid() && read.fingerPrint() == expected.fingerPrint();
            }
        },
        value);
}

// As many resource records as make about 1 MiB of indented JSON.
QJsonArray resources(int generation)
{
    QJsonArray records;
    for (int index = 0; index < 3600; ++index) {
        records.append(QJsonObject{{"id", QStringLiteral("r-%1-%2").arg(generation).arg(index)},
                                   {"payload", QString(220, QLatin1Char(generation ? 'n' : 'o'))}});
    }
    return records;
}

} // namespace

class TestProfileCrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The full count runs from bench/profile-crash.sh; CI kills a few writers.
    void writerKilledAtRandom()
    {
        QVERIFY2(qEnvironmentVariableIsSet("VANTRO_PROFILE_LOCATION"), "run through ctest");
        const int kills = qEnvironmentVariable("VANTRO_PROFILE_KILLS", QStringLiteral("30")).toInt();
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.account.info=false"));
        ::umask(0);
        const QString folder = vn::Locations::profileLocation().absoluteFilePath(Account::profile().name());
        QDir(folder).removeRecursively();

        const std::array<Entry, 5> entries{{
            {"accessToken",
             {AccessToken(QStringLiteral("b2xk.dG9rZW4.MA")),
              AccessToken(QStringLiteral("bmV3.dG9rZW4.MQ"))}},
            {"consumerInfo", {QJsonObject{{"name", "Old Name"}}, QJsonObject{{"name", "New Name"}}}},
            {"resources", {resources(0), resources(1)}},
            {"clientKey", {PrivateKey(PrivateKey::RSA, 2048), PrivateKey(PrivateKey::RSA, 2048)}},
            {"sessionInfo", {QJsonObject{{"id", "old"}}, QJsonObject{{"id", "new"}, {"expires", 1}}}},
        }};
        const QString names = QStringLiteral("accessToken clientKey consumerInfo resources sessionInfo");
        std::array<int, entries.size()> held{};
        QElapsedTimer pass;
        pass.start();
        Profile writer(Account::profile());
        for (const Entry &entry : entries) {
            QVERIFY(std::visit([&](const auto &value) { return writer.write(entry.name, value); },
                               entry.generations[0]));
        }
        // Kills spread over about one pass of the writer, which starts at a random entry.
        const int passMicroseconds = int(pass.nsecsElapsed() / 1000) + 1;

        for (int kill = 0; kill < kills; ++kill) {
            const int first = QRandomGenerator::global()->bounded(int(entries.size()));
            const pid_t child = ::fork();
            if (child == 0) {
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                for (std::size_t step = first;; ++step) {
                    const std::size_t index = step % entries.size();
                    std::visit([&](const auto &value) { writer.write(entries[index].name, value); },
                               entries[index].generations.at(1 - held[index]));
                    held[index] ^= 1;
                }
            }
            QVERIFY(child > 0);
            ::usleep(QRandomGenerator::global()->bounded(passMicroseconds));
            ::kill(child, SIGKILL);
            int status = 0;
            QCOMPARE(::waitpid(child, &status, 0), child);
            QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

            // What the next run of the application finds.
            const Profile reopened(Account::profile());
            for (std::size_t index = 0; index < entries.size(); ++index) {
                const Entry &entry = entries[index];
                held[index] = readsBack(reopened, entry.name, entry.generations[0])   ? 0
                              : readsBack(reopened, entry.name, entry.generations[1]) ? 1
                                                                                      : -1;
                QVERIFY2(held[index] >= 0,
                         qPrintable(entry.name + " is torn after kill " + QString::number(kill)));
                QCOMPARE(vn::test::fileMode(folder + QLatin1Char('/') + entry.name), QStringLiteral("600"));
            }
            QCOMPARE(reopened.entries().join(' '), names);
            const auto everything = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
            QCOMPARE(QDir(folder).entryList(everything, QDir::Name).join(' '), names);
            QCOMPARE(vn::test::fileMode(folder), QStringLiteral("700"));
        }
        // bench/profile-crash.sh reads this line for its figure.
        qInfo("%d kills survived, %d entries checked", kills, kills * int(entries.size()));
    }
};

QTEST_GUILESS_MAIN(TestProfileCrash)
#include "tst_profilecrash.moc"
