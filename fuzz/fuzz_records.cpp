// The records built from the service's JSON. Every object becomes a session, a consumer and a
// resource of the account instance; every array becomes an identity chain below the root.

#include "autotest_p.h"
#include "testprofile.h"

#include <VantroAccount/accountidentity.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/resource.h>
#include <VantroAccount/session.h>

#include <QFile>
#include <QJsonDocument>

using namespace vn::account;

namespace {

// An instance with a profile of its own, the built-in configuration, and the development service's
// demo identity chain as its own identity: the chain whose keys signed the resource seeds.
struct Fixture
{
    Fixture()
    {
        instance = std::make_unique<AccountInstance>(vn::account::Account::profile());
        QFile chain(QStringLiteral(VANTRO_FUZZ_CHAIN));
        FUZZ_CHECK(chain.open(QIODevice::ReadOnly));
        setIdentityForTests(*instance, AccountIdentity::loadChain(
                                           QJsonDocument::fromJson(chain.readAll()).array(), instance.get()));
        FUZZ_CHECK(instance->identity() && instance->identity()->verifyChain());
    }

    vn::fuzz::TestProfile profile;
    std::unique_ptr<AccountInstance> instance;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static Fixture fixture;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char *>(data), int(size)));

    if (document.isArray()) {
        // Without an instance each link owns the ones above it: the last one takes the chain with it.
        const std::unique_ptr<AccountIdentity> chain(AccountIdentity::loadChain(document.array(), nullptr));
        FUZZ_CHECK(!chain == document.array().isEmpty());
        if (chain) {
            chain->verifyChain(); // walks every link up to the root
        }
        return 0;
    }
    const QJsonObject record = document.object();
    const Session session(record, fixture.instance.get());
    Consumer consumer(record, fixture.instance.get());
    consumer.update(record.value(QLatin1String("payload")).toObject());
    const std::unique_ptr<Resource> resource(
        Resource::create(record, fixture.instance->identity(), fixture.instance.get()));
    FUZZ_CHECK(resource); // never null, whatever the record
    resource->priority();
    return 0;
}
