#include <VantroUtil/fileutils.h>

#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

using vn::util::FileUtils;

class TestFileUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void syncFile()
    {
        QTemporaryDir folder;
        QFile file(folder.filePath(QStringLiteral("entry")));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("content") == 7);
        file.close();
        QVERIFY(FileUtils::syncFile(file.fileName()));
        QVERIFY(!FileUtils::syncFile(folder.filePath(QStringLiteral("absent"))));
        QVERIFY(!FileUtils::syncFile(folder.path())); // a folder, not a file
        // A file that cannot be opened cannot be flushed; only root opens it all the same.
        QVERIFY(file.setPermissions(QFileDevice::WriteOwner));
        QCOMPARE(FileUtils::syncFile(file.fileName()), ::geteuid() == 0);
    }
};

QTEST_GUILESS_MAIN(TestFileUtils)
#include "tst_fileutils.moc"
