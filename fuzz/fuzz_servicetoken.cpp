// A service resource's token answer, as Service reads it once enabled: the answer's JSON, the token
// in it, the token's claims and the rule that a token past its expiry is not taken; a token that
// is taken is registered for the service's origin alone. The input is one answer (cannednetwork.h).
//
// The token request goes through the account's shared network access manager, which nobody can
// replace. A cache that holds the input as a fresh answer for every URL lets Qt answer the request
// from it without contacting the host; every input checks that it did.

#include "autotest_p.h"
#include "cannednetwork.h"
#include "testprofile.h"

#include <VantroAccount/accesstoken.h>
#include <VantroAccount/service.h>
#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace vn::account;

namespace {

const QUrl ServiceUrl(QStringLiteral("http://127.0.0.1:1/fuzz/"));

// A signed-out account with a profile of its own, whose requests the cache answers.
struct Fixture
{
    Fixture()
    {
        instance = std::make_unique<AccountInstance>(Account::profile());
        FUZZ_CHECK(instance->status() == AccountInstance::Disconnected);
        QNetworkAccessManager *network = vn::network::NetworkAccessManager::sharedInstance();
        cache = new vn::fuzz::CannedCache; // the manager owns it
        network->setCache(cache);
        QObject::connect(network, &QNetworkAccessManager::finished, [this] { ++answered; });
    }

    vn::fuzz::TestProfile profile;
    std::unique_ptr<AccountInstance> instance;
    vn::fuzz::CannedCache *cache = nullptr;
    int answered = 0;
};

QJsonObject serviceRecord()
{
    return QJsonObject{
        {QStringLiteral("id"), QStringLiteral("5e1f0c2a-9b7d-4e8a-a1c3-000000000f22")},
        {QStringLiteral("type"), QStringLiteral("vantro.resource.Service")},
        {QStringLiteral("payload"), QJsonObject{{QStringLiteral("url"), ServiceUrl.toString()},
                                                {QStringLiteral("service"), QStringLiteral("fuzz")}}},
    };
}

QByteArray registeredHeader()
{
    QNetworkRequest request(ServiceUrl);
    vn::network::AuthorizationRegistry::instance()->authorize(request, "GET", QByteArray());
    return request.rawHeader("Authorization");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static Fixture fixture;
    static const QJsonObject record = serviceRecord();
    vn::fuzz::CannedAnswer answer =
        vn::fuzz::cannedAnswers(QByteArray(reinterpret_cast<const char *>(data), int(size)), 1).at(0);
    if (answer.status == 0) {
        answer.status = 200; // a cached answer has a status
    }
    fixture.cache->setAnswer(answer);
    const int reads = fixture.cache->reads();
    const int answered = fixture.answered;

    {
        Service service(record, fixture.instance->identity(), fixture.instance.get());
        service.enable();
        vn::fuzz::runUntil([&] { return fixture.answered > answered; });
        FUZZ_CHECK(fixture.cache->reads() == reads + 1); // from the cache, never from the host

        // What the service should make of the answer, from the outside.
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(answer.body, &error);
        const AccessToken token(document.object().value(QLatin1String("token")).toString());
        const JsonWebToken claims{QByteArray(token)};
        const QDateTime now = QDateTime::currentDateTime();
        const QByteArray bytes(token);
        // A token is no use unless it fits into a header line.
        const bool sendable = std::none_of(bytes.cbegin(), bytes.cend(), [](char c) {
            return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
        });
        const bool usable = answer.status == 200 && error.error == QJsonParseError::NoError &&
                            token.isValid() && claims.valid && sendable;

        if (service.status() == Service::Ready) {
            FUZZ_CHECK(usable && (!claims.exp.isValid() || claims.exp > now.addSecs(-60)));
            FUZZ_CHECK(registeredHeader() == "Bearer " + bytes);
        } else {
            FUZZ_CHECK(service.status() == Service::Pending);
            FUZZ_CHECK(!usable || (claims.exp.isValid() && claims.exp < now.addSecs(60)));
            FUZZ_CHECK(registeredHeader().isEmpty());
        }
    }
    // The service's registration goes with it.
    FUZZ_CHECK(registeredHeader().isEmpty());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
