#include <Vantro/locations.h>
#include <VantroAccount/accesstoken.h>
#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>
#include <VantroCrypto/privatekey.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QtTest>

#include <array>
#include <csignal>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <variant>

using vn::account::AccessToken;
using vn::account::Account;
using vn::account::Profile;
using vn::crypto::PrivateKey;

namespace {

// A writer killed at any instant must leave every entry as one of its two generations, whole.
using Value = std::variant<AccessToken, QJsonObject, QJsonArray, PrivateKey>;

struct Entry
{
    QString name;
    std::array<Value, 2> generations;
};

bool readsBack(const Profile &profile, const QString &name, const AccessToken &token)
{
    return QByteArray(profile.readToken(name)) == QByteArray(token);
}

bool readsBack(const Profile &profile, const QString &name, const QJsonObject &object)
{
    return profile.readObject(name) == object;
}

bool readsBack(const Profile &profile, const QString &name, const QJsonArray &array)
{
    return profile.readArray(name) == array;
}

bool readsBack(const Profile &profile, const QString &name, const PrivateKey &key)
{
    const PrivateKey read = profile.readPrivateKey(name);
    return read.isValid() && read.fingerPrint() == key.fingerPrint();
}

// 0 or 1, or -1 for an entry that is neither.
int generationIn(const Profile &profile, const Entry &entry)
{
    for (int generation : {0, 1}) {
        const auto matches = [&](const auto &value) { return readsBack(profile, entry.name, value); };
        if (std::visit(matches, entry.generations.at(generation))) {
            return generation;
        }
    }
    return -1;
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

QString modeOf(const QString &path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? QString::number(info.st_mode & 07777, 8)
                                                                   : QStringLiteral("missing");
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
        const int kills = qEnvironmentVariableIsSet("VANTRO_PROFILE_KILLS")
                              ? qEnvironmentVariableIntValue("VANTRO_PROFILE_KILLS")
                              : 30;
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.account.info=false"));
        ::umask(0);
        const QString folder = vn::Locations::profileLocation().absoluteFilePath(Account::profile().name());
        QDir(folder).removeRecursively();

        const std::array<Entry, 5> entries{{
            {"accessToken",
             {AccessToken(QStringLiteral("b2xk.dG9rZW4.MA")),
              AccessToken(QStringLiteral("bmV3.dG9rZW4.MQ"))}},
            {"sessionInfo", {QJsonObject{{"id", "old"}}, QJsonObject{{"id", "new"}, {"expires", 1}}}},
            {"consumerInfo", {QJsonObject{{"name", "Old Name"}}, QJsonObject{{"name", "New Name"}}}},
            {"resources", {resources(0), resources(1)}},
            {"clientKey", {PrivateKey(PrivateKey::RSA, 2048), PrivateKey(PrivateKey::RSA, 2048)}},
        }};
        QStringList names;
        std::array<int, entries.size()> held{};
        QElapsedTimer pass;
        pass.start();
        Profile writer(Account::profile());
        for (const Entry &entry : entries) {
            names.append(entry.name);
            QVERIFY(std::visit([&](const auto &value) { return writer.write(entry.name, value); },
                               entry.generations[0]));
        }
        names.sort();
        // Kills spread over about one pass of the writer, which starts at a random entry.
        const int passMicroseconds = int(pass.nsecsElapsed() / 1000) + 1;

        int checked = 0;
        for (int kill = 0; kill < kills; ++kill) {
            const int first = QRandomGenerator::global()->bounded(int(entries.size()));
            const pid_t child = ::fork();
            if (child == 0) {
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                for (std::size_t step = first;; ++step) {
                    const Entry &entry = entries[step % entries.size()];
                    const Value &next = entry.generations.at(1 - held[step % entries.size()]);
                    std::visit([&](const auto &value) { writer.write(entry.name, value); }, next);
                    held[step % entries.size()] ^= 1;
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
                held[index] = generationIn(reopened, entries[index]);
                QVERIFY2(held[index] >= 0,
                         qPrintable(entries[index].name + " is torn after kill " + QString::number(kill)));
                QCOMPARE(modeOf(folder + QLatin1Char('/') + entries[index].name), QStringLiteral("600"));
                ++checked;
            }
            QCOMPARE(reopened.entries().join(' '), names.join(' '));
            const auto everything = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
            QCOMPARE(QDir(folder).entryList(everything, QDir::Name).join(' '), names.join(' '));
            QCOMPARE(modeOf(folder), QStringLiteral("700"));
        }
        qInfo("%d kills survived, %d entries checked", kills, checked);
    }
};

QTEST_GUILESS_MAIN(TestProfileCrash)
#include "tst_profilecrash.moc"
