#include <Vantro/locations.h>

#include <QStandardPaths>
#include <QTest>

class TestLocations : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void profileLocation_data();
    void profileLocation();

private:
    QByteArray m_original;
};

void TestLocations::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    m_original = qgetenv("VANTRO_PROFILE_LOCATION");
}

void TestLocations::cleanup()
{
    qputenv("VANTRO_PROFILE_LOCATION", m_original);
}

void TestLocations::profileLocation_data()
{
    QTest::addColumn<bool>("set");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("overridden");

    QTest::newRow("unset") << false << QString() << false;
    QTest::newRow("empty") << true << QString() << false;
    QTest::newRow("set") << true << QStringLiteral("/tmp/vantro-profiles-elsewhere") << true;
}

void TestLocations::profileLocation()
{
    QFETCH(bool, set);
    QFETCH(QString, value);
    QFETCH(bool, overridden);

    if (set) {
        qputenv("VANTRO_PROFILE_LOCATION", value.toLocal8Bit());
    } else {
        qunsetenv("VANTRO_PROFILE_LOCATION");
    }
    const QDir location = vn::Locations::profileLocation();
    const QString appData = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    QVERIFY(!appData.isEmpty());
    QCOMPARE(location.path(), overridden ? value : appData + QStringLiteral("/profiles"));
    if (!overridden) {
        QVERIFY2(!location.exists(), "looking up the location must not create it");
    }
}

QTEST_GUILESS_MAIN(TestLocations)
#include "tst_locations.moc"
