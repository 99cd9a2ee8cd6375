#include <VantroUtil/fileutils.h>

#include "testio.h"

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
        const QString entry = folder.filePath(QStringLiteral("entry"));
        QVERIFY(vn::test::writeFile(entry, "content"));
        QVERIFY(FileUtils::syncFile(entry));
        QVERIFY(!FileUtils::syncFile(folder.filePath(QStringLiteral("absent"))));
        QVERIFY(!FileUtils::syncFile(folder.path())); // a folder, not a file
        // A file that cannot be opened cannot be flushed; only root opens it all the same.
        QVERIFY(QFile::setPermissions(entry, QFileDevice::WriteOwner));
        QCOMPARE(FileUtils::syncFile(entry), ::geteuid() == 0);
    }
};

QTEST_GUILESS_MAIN(TestFileUtils)
#include "tst_fileutils.moc"
