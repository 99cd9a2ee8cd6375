#include <Vantro/locations.h>

#include <QStandardPaths>
#include <QTest>

class TestLocations : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void profileLocation_data()
    {
        QTest::addColumn<QByteArray>("value"); // of VANTRO_PROFILE_LOCATION, unset when null
        QTest::addColumn<QString>("expected"); // below the home folder
        QTest::newRow("unset") << QByteArray() << "/.qttest/share/tst_locations/profiles";
        QTest::newRow("empty") << QByteArray("") << "/.qttest/share/tst_locations/profiles";
        QTest::newRow("set") << QDir::homePath().toUtf8() + "/vantro-elsewhere"
                             << "/vantro-elsewhere";
    }

    void profileLocation()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, expected);
        QStandardPaths::setTestModeEnabled(true);
        value.isNull() ? qunsetenv("VANTRO_PROFILE_LOCATION") : qputenv("VANTRO_PROFILE_LOCATION", value);
        const QString location = vn::Locations::profileLocation().path();
        QCOMPARE(location, QDir::homePath() + expected);
        QVERIFY2(!QDir(location).exists(), "looking up the location must not create it");
    }
};

QTEST_GUILESS_MAIN(TestLocations)
#include "tst_locations.moc"
