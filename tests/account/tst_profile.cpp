#include <Vantro/locations.h>
#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>

#include "testio.h"

#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using vn::account::Account;
using vn::account::Profile;
using vn::test::fileMode;
using vn::test::readFile;

namespace {

// This process's profile is "work" (set first thing); a profile object left with an empty name is
// "default".
const QString Work = QStringLiteral("work");
const QString Default = QStringLiteral("default");

QString pathOf(const QString &profile, const QString &entry = QString())
{
    const QString folder = vn::Locations::profileLocation().absoluteFilePath(profile);
    return entry.isEmpty() ? folder : folder + QLatin1Char('/') + entry;
}

// The only way to another name than the application's: a copy of a moved-from profile. Its folder
// is removed first, so the copy has to make it again, empty.
Profile freshDefaultProfile()
{
    QDir(pathOf(Default)).removeRecursively();
    Profile source(Account::profile());
    const Profile moved(std::move(source));
    return Profile(source);
}

} // namespace

class TestProfile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // The test empties its profile location, so it must never be a real user's.
        QVERIFY2(qEnvironmentVariableIsSet("VANTRO_PROFILE_LOCATION"), "run through ctest");
        QDir(vn::Locations::profileLocation().absolutePath()).removeRecursively();
        // Whatever the umask, entries and the folder must come out private.
        ::umask(0);
        QCoreApplication::instance()->setProperty("profile", Work);
        QTest::ignoreMessage(QtInfoMsg, "Using profile work");
        QCOMPARE(Account::profile().name(), Work);
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.account.info=false"));
    }

    void copyAndMove()
    {
        Profile copied = freshDefaultProfile();
        QCOMPARE(copied.name(), Default);

        // Assignment takes the name only: reads and writes stay in the folder the object was built for.
        Profile moved(copied);
        copied = Account::profile();
        moved = Profile(Account::profile());
        QCOMPARE(copied.name(), Work);
        QCOMPARE(moved.name(), Work);
        QVERIFY(copied.write("copied", QByteArray("value")));
        QVERIFY(moved.write("moved", QByteArray("value")));
        QCOMPARE(QDir(pathOf(Default)).entryList(QDir::Files), (QStringList{"copied", "moved"}));
        QVERIFY(!Account::profile().hasEntry("copied") && !Account::profile().hasEntry("moved"));
    }

    void readTrimsAndCaps_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QByteArray>("read");
        const QByteArray almost4MiB(4 * 1024 * 1024 - 1, 'a');

        QTest::newRow("binary between spaces") << QByteArray(" \x00\x01 ", 4) << QByteArray("\x00\x01", 2);
        QTest::newRow("every whitespace kind")
            << QByteArray("\t\n\v\f\r x y\t\n\v\f\r ") << QByteArray("x y");
        QTest::newRow("exactly 4 MiB") << almost4MiB + 'b' << almost4MiB + 'b';
        QTest::newRow("beyond 4 MiB") << almost4MiB + "bcd" << almost4MiB + 'b';
        QTest::newRow("cut at 4 MiB, then trimmed") << almost4MiB + " b" << almost4MiB;
    }

    void readTrimsAndCaps()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QByteArray, read);
        QVERIFY(Account::profile().write("raw", stored));
        QCOMPARE(readFile(pathOf(Work, "raw")), stored);
        QCOMPARE(Account::profile().readBinary("raw"), read);
    }

    void valuesRoundTrip()
    {
        Profile &profile = Account::profile();
        const QString text = QStringLiteral("Gr\u00fc\u00dfe");
        QVERIFY(profile.write("text", text));
        QCOMPARE(readFile(pathOf(Work, "text")), text.toUtf8());
        QCOMPARE(profile.readString("text"), text);
        const QJsonObject object{{"id", "s-1"}, {"nested", QJsonObject{{"n", 2}}}};
        QVERIFY(profile.write("object", object));
        QVERIFY(readFile(pathOf(Work, "object")).startsWith("{\n    \""));
        QVERIFY(profile.readArray("object").isEmpty());
        QVERIFY(profile.write("array", QJsonArray{object, "two"}));
        QVERIFY(profile.readObject("array").isEmpty());
        // Objects, arrays, tokens and keys come back whole in tst_profilecrash.
    }

    void entriesAndDelete()
    {
        Profile profile = freshDefaultProfile();
        for (const char *name : {"b", "a", "B", ".hidden"}) {
            QVERIFY(profile.write(QString::fromLatin1(name), QByteArray(name)));
        }
        QVERIFY(QDir(pathOf(Default)).mkdir("folder"));
        QCOMPARE(profile.entries(), (QStringList{"B", "a", "b"}));
        QVERIFY(profile.deleteEntry("a"));
        QVERIFY(!profile.hasEntry("a"));
        QVERIFY(!profile.deleteEntry("a"));
    }

    // Opening removes the pending files of writers that are gone, and only those.
    void pendingFilesOfGoneWriters()
    {
        const pid_t gone = ::fork();
        if (gone == 0) {
            ::_exit(0);
        }
        QCOMPARE(::waitpid(gone, nullptr, 0), gone);
        const QString folder = pathOf(Work);
        // A writer that has exited, this process, one that lives on (pid 1), and a name without a pid.
        for (const QString &writer :
             {QString::number(gone), QString::number(::getpid()), QString("1"), QString("x")}) {
            QVERIFY(vn::test::writeFile(folder + "/.pending." + writer + ".Ab12Cd", "half"));
        }

        const Profile reopened(Account::profile());
        QCOMPARE(QDir(folder).entryList({".pending.*"}, QDir::Files | QDir::Hidden, QDir::Name),
                 (QStringList{".pending.1.Ab12Cd", ".pending." + QString::number(::getpid()) + ".Ab12Cd",
                              ".pending.x.Ab12Cd"}));
        // The profile folder outlives the run: what this test planted goes with it.
        for (const QString &left : QDir(folder).entryList({".pending.*"}, QDir::Files | QDir::Hidden)) {
            QFile::remove(folder + QLatin1Char('/') + left);
        }
    }

    // The umask is 0 here: only the store's own care keeps an entry private that someone opened up
    // (tst_profilecrash checks new ones).
    void openedEntryMadePrivate()
    {
        const QString path = pathOf(Work, "private");
        QVERIFY(Account::profile().write("private", QByteArray("secret")));
        QCOMPARE(::chmod(QFile::encodeName(path).constData(), 0666), 0);
        QVERIFY(Account::profile().write("private", QByteArray("secret")));
        QCOMPARE(fileMode(path), QStringLiteral("600"));
    }

    // A file size limit stops the write half-way; it binds root too.
    void failedWriteKeepsPreviousContent()
    {
        Profile profile = freshDefaultProfile();
        QVERIFY(profile.write("session", QByteArray("previous content")));
        {
            struct rlimit limit;
            ::getrlimit(RLIMIT_FSIZE, &limit);
            const auto handler = std::signal(SIGXFSZ, SIG_IGN);
            const auto restore = qScopeGuard([&] {
                ::setrlimit(RLIMIT_FSIZE, &limit);
                std::signal(SIGXFSZ, handler);
            });
            const struct rlimit small = {4096, limit.rlim_max};
            ::setrlimit(RLIMIT_FSIZE, &small);
            QVERIFY(!profile.write("session", QByteArray(64 * 1024, 'n')));
        }
        QCOMPARE(profile.readBinary("session"), QByteArray("previous content"));
        QCOMPARE(QDir(pathOf(Default)).entryList(QDir::Files | QDir::Hidden), QStringList{"session"});
    }
};

QTEST_GUILESS_MAIN(TestProfile)
#include "tst_profile.moc"
