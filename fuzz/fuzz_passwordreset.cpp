// The service's answer to a password reset, as PasswordReset completes it: the status it reports
// and the body it logs when the status is neither 201 nor 404. The input is one answer
// (cannednetwork.h), handed over by the network access manager of the element's QML engine.

#include "cannednetwork.h"

#include <VantroAccount/passwordreset.h>

#include <QNetworkAccessManager>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlNetworkAccessManagerFactory>

using vn::account::PasswordReset;

namespace {

vn::fuzz::CannedNetwork *network = nullptr;

class CannedNetworkFactory : public QQmlNetworkAccessManagerFactory
{
public:
    QNetworkAccessManager *create(QObject *parent) override
    {
        network = new vn::fuzz::CannedNetwork;
        network->setParent(parent);
        return network;
    }
};

struct Fixture
{
    Fixture()
    {
        engine.setNetworkAccessManagerFactory(&factory);
        FUZZ_CHECK(engine.networkAccessManager() == network);
    }

    CannedNetworkFactory factory;
    QQmlEngine engine;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static Fixture fixture;
    const vn::fuzz::CannedAnswer answer =
        vn::fuzz::cannedAnswers(QByteArray(reinterpret_cast<const char *>(data), int(size)), 1).at(0);
    network->setAnswers({answer});

    PasswordReset reset;
    QQmlEngine::setContextForObject(&reset, fixture.engine.rootContext());
    reset.setEmail(QStringLiteral("ada@example.com"));
    QList<int> reported;
    QObject::connect(&reset, &PasswordReset::finished, [&](int status) { reported.append(status); });
    reset.requestReset();
    FUZZ_CHECK(reset.isBusy());
    vn::fuzz::runUntil([&] { return !reset.isBusy(); });

    // The status as the service gave it, 0 for no answer, reported once.
    FUZZ_CHECK(reported == QList<int>{answer.status});
    FUZZ_CHECK(network->sent().size() == 1);
    return 0;
}
