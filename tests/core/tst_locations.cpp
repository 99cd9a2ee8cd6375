#include <Vantro/locations.h>

#include <QStandardPaths>
#include <QTest>

class TestLocations : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void profileLocation_data()
    {
        QTest::addColumn<bool>("set");
        QTest::addColumn<QString>("value"); // of VANTRO_PROFILE_LOCATION; only a non-empty one counts
        QTest::newRow("unset") << false << QString();
        QTest::newRow("empty") << true << QString();
        QTest::newRow("set") << true << QStringLiteral("/tmp/vantro-profiles-elsewhere");
    }

    void profileLocation()
    {
        QFETCH(bool, set);
        QFETCH(QString, value);
        const QByteArray original = qgetenv("VANTRO_PROFILE_LOCATION");
        set ? qputenv("VANTRO_PROFILE_LOCATION", value.toLocal8Bit()) : qunsetenv("VANTRO_PROFILE_LOCATION");
        const QString location = vn::Locations::profileLocation().path();
        qputenv("VANTRO_PROFILE_LOCATION", original);

        const QString appData = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
        QVERIFY(!appData.isEmpty());
        QCOMPARE(location, value.isEmpty() ? appData + QStringLiteral("/profiles") : value);
        QVERIFY2(!value.isEmpty() || !QDir(location).exists(), "looking up the location must not create it");
    }
};

QTEST_GUILESS_MAIN(TestLocations)
#include "tst_locations.moc"
