// Runs against a build of the configuration code whose trust data came from substituted cache
// values (a stand-in vendor pair made at build time), not from the development defaults.
#include <VantroAccount/accountconfiguration.h>

#include <QtTest>

class TestVendorTrust : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The vendor's default verifies only with the vendor key, so loading it proves both swapped.
    void vendorPairIsBuiltIn()
    {
        QCOMPARE(vn::account::AccountConfiguration::serviceUrl(),
                 QUrl(QStringLiteral(VENDOR_SERVICE_URL "/")));
    }
};

QTEST_GUILESS_MAIN(TestVendorTrust)
#include "tst_vendortrust.moc"
