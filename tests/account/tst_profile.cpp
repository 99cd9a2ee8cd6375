#include <Vantro/locations.h>
#include <VantroAccount/accesstoken.h>
#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>
#include <VantroCrypto/privatekey.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <cstdio>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using vn::account::AccessToken;
using vn::account::Account;
using vn::account::Profile;
using vn::crypto::PrivateKey;

namespace {

// This process's profile is "work" (set in main); a profile object left with an empty name is "default".
const QString Work = QStringLiteral("work");
const QString Default = QStringLiteral("default");

// A child run of this program with this variable set only prints its profile's name: "unset"
// leaves the application property alone, "empty" sets it to "".
const char ProbeVariable[] = "TST_PROFILE_PROBE";

const int MaximumEntrySize = 4 * 1024 * 1024;

QString pathOf(const QString &profile, const QString &entry = QString())
{
    const QString folder = vn::Locations::profileLocation().absoluteFilePath(profile);
    return entry.isEmpty() ? folder : QDir(folder).absoluteFilePath(entry);
}

QByteArray fileContent(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

// In octal, as ls and chmod show it.
QString modeOf(const QString &path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? QString::number(info.st_mode & 07777, 8)
                                                                   : QStringLiteral("missing");
}

void expectProfileLog(const QString &name)
{
    QTest::ignoreMessage(QtInfoMsg, qPrintable(QStringLiteral("Using profile ") + name));
}

QStringList folderContents(const QString &path)
{
    return QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

// The only way to another name than the application's: a profile made from a moved-from one.
Profile defaultProfile()
{
    expectProfileLog(Work);
    Profile source(Account::profile());
    expectProfileLog(Work);
    const Profile moved(std::move(source));
    expectProfileLog(Default);
    return Profile(source);
}

} // namespace

class TestProfile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QDir(vn::Locations::profileLocation().absolutePath()).removeRecursively();
        expectProfileLog(Work);
        QCOMPARE(Account::profile().name(), Work);
        QCOMPARE(&Account::profile(), &Account::profile());
    }

    void init()
    {
        for (const QString &profile : {Work, Default}) {
            ::chmod(QFile::encodeName(pathOf(profile)).constData(), 0700);
            for (const QString &name : folderContents(pathOf(profile))) {
                if (!QFile::remove(pathOf(profile, name))) {
                    QDir(pathOf(profile, name)).removeRecursively();
                }
            }
        }
    }

    void nameFromApplicationProperty_data()
    {
        QTest::addColumn<QString>("probe");
        QTest::addColumn<QString>("name");
        QTest::newRow("property unset") << "unset" << Default;
        QTest::newRow("property empty") << "empty" << Default;
        QTest::newRow("property work") << Work << Work;
    }

    void nameFromApplicationProperty()
    {
        QFETCH(QString, probe);
        QFETCH(QString, name);
        QTemporaryDir location;
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QString::fromLatin1(ProbeVariable), probe);
        environment.insert(QStringLiteral("VANTRO_PROFILE_LOCATION"), location.path());
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), QStringList());
        QVERIFY(child.waitForFinished(30000));
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(child.readAllStandardOutput()), name);
        QCOMPARE(folderContents(location.path()), QStringList{name});
        QCOMPARE(modeOf(QDir(location.path()).absoluteFilePath(name)), QStringLiteral("700"));
    }

    void constructorsInitializeAgain()
    {
        expectProfileLog(Work);
        Profile source(Account::profile());
        expectProfileLog(Work);
        const Profile moved(std::move(source));
        QCOMPARE(moved.name(), Work);
        QVERIFY(source.name().isEmpty());

        // A copy opens its folder afresh: one that has gone is made again.
        QVERIFY(QDir(pathOf(Default)).removeRecursively());
        expectProfileLog(Default);
        const Profile fallback(source);
        QCOMPARE(fallback.name(), Default);
        QCOMPARE(modeOf(pathOf(Default)), QStringLiteral("700"));
    }

    void assignmentKeepsFolder_data()
    {
        QTest::addColumn<bool>("move");
        QTest::newRow("copy") << false;
        QTest::newRow("move") << true;
    }

    void assignmentKeepsFolder()
    {
        QFETCH(bool, move);
        Profile target = defaultProfile();
        expectProfileLog(Work);
        Profile work(Account::profile());
        if (move) {
            target = std::move(work);
        } else {
            target = work;
        }
        QCOMPARE(target.name(), Work);
        QVERIFY(target.write(QStringLiteral("entry"), QByteArray("value")));
        QVERIFY(QFile::exists(pathOf(Default, QStringLiteral("entry"))));
        QVERIFY(!Account::profile().hasEntry(QStringLiteral("entry")));
    }

    void missingEntryReadsEmpty()
    {
        const Profile &profile = Account::profile();
        const QString entry = QStringLiteral("never-written");
        QVERIFY(!profile.hasEntry(entry));
        QVERIFY(profile.readBinary(entry).isEmpty());
        QVERIFY(profile.readString(entry).isEmpty());
        QVERIFY(profile.readObject(entry).isEmpty());
        QVERIFY(profile.readArray(entry).isEmpty());
        QVERIFY(!profile.readToken(entry).isValid());
        QVERIFY(!profile.readPrivateKey(entry).isValid());
    }

    void readTrimsAndCaps_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QByteArray>("read");
        const QByteArray almost4MiB(MaximumEntrySize - 1, 'a');

        QTest::newRow("trailing line feed") << QByteArray("abc\n") << QByteArray("abc");
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
        QVERIFY(Account::profile().write(QStringLiteral("raw"), stored));
        QCOMPARE(fileContent(pathOf(Work, QStringLiteral("raw"))), stored);
        QCOMPARE(Account::profile().readBinary(QStringLiteral("raw")), read);
    }

    void valuesRoundTrip()
    {
        Profile &profile = Account::profile();
        const QString text = QStringLiteral("Gr\u00fc\u00dfe \u2713");
        QVERIFY(profile.write(QStringLiteral("text"), text));
        QCOMPARE(fileContent(pathOf(Work, QStringLiteral("text"))), text.toUtf8());
        QCOMPARE(profile.readString(QStringLiteral("text")), text);

        const QJsonObject object = QJsonDocument::fromJson(R"({"id": "s-1", "nested": {"n": 2}})").object();
        QVERIFY(profile.write(QStringLiteral("object"), object));
        QVERIFY(fileContent(pathOf(Work, QStringLiteral("object"))).startsWith("{\n    \""));
        QCOMPARE(profile.readObject(QStringLiteral("object")), object);
        QVERIFY(profile.readArray(QStringLiteral("object")).isEmpty());

        const QJsonArray array = QJsonDocument::fromJson(R"([{"id": 1}, "two"])").array();
        QVERIFY(profile.write(QStringLiteral("array"), array));
        QCOMPARE(profile.readArray(QStringLiteral("array")), array);
        QVERIFY(profile.readObject(QStringLiteral("array")).isEmpty());

        QVERIFY(profile.write(QStringLiteral("broken"), QByteArray("{\"id\": ")));
        QVERIFY(profile.readObject(QStringLiteral("broken")).isEmpty());

        QVERIFY(
            profile.write(QStringLiteral("accessToken"), AccessToken(QStringLiteral("aGVhZA.Ym9keQ.c2ln"))));
        QCOMPARE(fileContent(pathOf(Work, QStringLiteral("accessToken"))), QByteArray("aGVhZA.Ym9keQ.c2ln"));
        QCOMPARE(QByteArray(profile.readToken(QStringLiteral("accessToken"))),
                 QByteArray("aGVhZA.Ym9keQ.c2ln"));

        const PrivateKey key(PrivateKey::RSA, 2048);
        QVERIFY(profile.write(QStringLiteral("clientKey"), key));
        QCOMPARE(fileContent(pathOf(Work, QStringLiteral("clientKey"))), key.toPEM());
        const PrivateKey read = profile.readPrivateKey(QStringLiteral("clientKey"));
        QVERIFY(read.isValid());
        QCOMPARE(read.fingerPrint(), key.fingerPrint());
    }

    void entriesAreSortedFiles()
    {
        Profile &profile = Account::profile();
        for (const char *name : {"b", "a", "B", ".hidden"}) {
            QVERIFY(profile.write(QString::fromLatin1(name), QByteArray(name)));
        }
        QVERIFY(QDir(pathOf(Work)).mkdir(QStringLiteral("folder")));
        QCOMPARE(profile.entries(),
                 (QStringList{QStringLiteral("B"), QStringLiteral("a"), QStringLiteral("b")}));
    }

    void deleteEntry()
    {
        Profile &profile = Account::profile();
        QVERIFY(!profile.deleteEntry(QStringLiteral("absent")));
        QVERIFY(!profile.hasEntry(QStringLiteral("absent")));
        QVERIFY(profile.write(QStringLiteral("present"), QByteArray("x")));
        QVERIFY(profile.deleteEntry(QStringLiteral("present")));
        QVERIFY(!profile.hasEntry(QStringLiteral("present")));
    }

    // The umask is 0 here: only the store's own care keeps the entries private.
    void entriesArePrivate_data()
    {
        QTest::addColumn<int>("previousMode"); // 0: no earlier file
        QTest::newRow("new entry") << 0;
        QTest::newRow("entry that was world-readable") << 0666;
    }

    void entriesArePrivate()
    {
        QFETCH(int, previousMode);
        const QString path = pathOf(Work, QStringLiteral("clientKey"));
        if (previousMode != 0) {
            QFile previous(path);
            QVERIFY(previous.open(QIODevice::WriteOnly));
            QCOMPARE(modeOf(path), QString::number(previousMode, 8));
        }
        QVERIFY(Account::profile().write(QStringLiteral("clientKey"), QByteArray("secret")));
        QCOMPARE(modeOf(path), QStringLiteral("600"));
        QCOMPARE(modeOf(pathOf(Work)), QStringLiteral("700"));
    }

    void failedWriteKeepsPreviousContent_data()
    {
        QTest::addColumn<bool>("readOnlyFolder"); // otherwise a file size limit, which binds root too
        QTest::newRow("read-only folder") << true;
        QTest::newRow("file size limit") << false;
    }

    void failedWriteKeepsPreviousContent()
    {
        QFETCH(bool, readOnlyFolder);
        if (readOnlyFolder && ::geteuid() == 0) {
            QSKIP("root writes into a read-only folder; the file size limit row covers root");
        }
        Profile &profile = Account::profile();
        QVERIFY(profile.write(QStringLiteral("session"), QByteArray("previous content")));
        {
            const QByteArray folder = QFile::encodeName(pathOf(Work));
            struct rlimit limit;
            ::getrlimit(RLIMIT_FSIZE, &limit);
            const auto handler = std::signal(SIGXFSZ, SIG_IGN);
            const auto restore = qScopeGuard([&] {
                ::chmod(folder.constData(), 0700);
                ::setrlimit(RLIMIT_FSIZE, &limit);
                std::signal(SIGXFSZ, handler);
            });
            if (readOnlyFolder) {
                ::chmod(folder.constData(), 0500);
            } else {
                const struct rlimit small = {4096, limit.rlim_max};
                ::setrlimit(RLIMIT_FSIZE, &small);
            }
            QVERIFY(!profile.write(QStringLiteral("session"), QByteArray(64 * 1024, 'n')));
        }
        QCOMPARE(profile.readBinary(QStringLiteral("session")), QByteArray("previous content"));
        QCOMPARE(folderContents(pathOf(Work)),
                 QStringList{QStringLiteral("session")}); // no temporary file left
    }

    void writeFailsWithoutFolder()
    {
        // A file where the folder should be: the folder cannot be made, for root neither.
        QVERIFY(QDir(pathOf(Default)).removeRecursively());
        QVERIFY(QFile(pathOf(Default)).open(QIODevice::WriteOnly));
        Profile profile = defaultProfile();
        QVERIFY(!profile.write(QStringLiteral("entry"), QByteArray("value")));
        QVERIFY(!profile.hasEntry(QStringLiteral("entry")));
        QCOMPARE(modeOf(pathOf(Default)), QStringLiteral("666")); // only folders are narrowed
        QVERIFY(QFile::remove(pathOf(Default)));
    }
};

int main(int argc, char *argv[])
{
    // Whatever the umask, entries and the folder must come out private.
    ::umask(0);
    // The test empties its profile location: never let that be a real user's.
    std::optional<QTemporaryDir> ownLocation;
    if (!qEnvironmentVariableIsSet("VANTRO_PROFILE_LOCATION")) {
        ownLocation.emplace();
        qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(ownLocation->path()));
    }
    QCoreApplication application(argc, argv);
    if (qEnvironmentVariableIsSet(ProbeVariable)) {
        const QString probe = qEnvironmentVariable(ProbeVariable);
        if (probe != QLatin1String("unset")) {
            application.setProperty("profile", probe == QLatin1String("empty") ? QString() : probe);
        }
        std::fputs(Account::profile().name().toUtf8().constData(), stdout);
        return 0;
    }
    application.setProperty("profile", Work);
    TestProfile test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_profile.moc"
