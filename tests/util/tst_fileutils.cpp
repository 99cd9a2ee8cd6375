#include <VantroUtil/fileutils.h>

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

using vn::util::FileUtils;

class TestFileUtils : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void syncFile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("create");
        QTest::addColumn<bool>("expected");
        QTest::newRow("written file") << "entry" << true << true;
        QTest::newRow("missing file") << "absent" << false << false;
        QTest::newRow("empty path") << "" << false << false;
        QTest::newRow("folder, not a file") << "." << false << false;
    }

    void syncFile()
    {
        QFETCH(QString, name);
        QFETCH(bool, create);
        QFETCH(bool, expected);
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QString path = name.isEmpty() ? QString() : folder.filePath(name);
        if (create) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("content");
        }
        QCOMPARE(FileUtils::syncFile(path), expected);
    }

    void unreadableFileFails()
    {
        if (::geteuid() == 0) {
            QSKIP("root opens any file; the permission check cannot fail");
        }
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("locked"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QVERIFY(file.setPermissions(QFileDevice::WriteOwner));
        QVERIFY(!FileUtils::syncFile(path));
    }
};

QTEST_GUILESS_MAIN(TestFileUtils)
#include "tst_fileutils.moc"
