// The service's answers to a device login, read by ChallengeResponseAuthenticator: the phase-1
// answer (JSON, the base64 challenge, its decryption with the device key) and the token answer of
// phase 2. The input is the phase-1 answer, a line "--" and the phase-2 answer (cannednetwork.h);
// the device key is the corpus's test-only RSA key, to which the seeds' challenges are encrypted.

#include "cannednetwork.h"

#include <VantroAccount/challengeresponseauthenticator.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

using vn::account::AbstractAuthenticator;
using vn::account::AccessToken;
using vn::account::ChallengeResponseAuthenticator;

namespace {

vn::crypto::PrivateKey deviceKey()
{
    QFile file(QStringLiteral(VANTRO_FUZZ_KEY));
    FUZZ_CHECK(file.open(QIODevice::ReadOnly));
    const vn::crypto::PrivateKey key(file.readAll(), QString());
    FUZZ_CHECK(key.isValid());
    return key;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static vn::fuzz::CannedNetwork network;
    static const vn::crypto::PrivateKey key = deviceKey();
    const QList<vn::fuzz::CannedAnswer> answers =
        vn::fuzz::cannedAnswers(QByteArray(reinterpret_cast<const char *>(data), int(size)), 2);
    network.setAnswers(answers);

    // A new authenticator for every login: one that got no challenge it could answer is spent.
    ChallengeResponseAuthenticator authenticator;
    authenticator.setNetwork(&network);
    authenticator.setPrivateKey(key);
    authenticator.setHostInfo(QStringLiteral("fuzz"));
    int outcomes = 0;
    AbstractAuthenticator::Status status = AbstractAuthenticator::Busy;
    AccessToken token;
    QObject::connect(&authenticator, &AbstractAuthenticator::finished,
                     [&](AbstractAuthenticator::Status finishedWith, const AccessToken &issued) {
                         ++outcomes;
                         status = finishedWith;
                         token = issued;
                     });
    authenticator.start();
    vn::fuzz::runUntil([&] { return outcomes > 0; });
    QCoreApplication::processEvents(); // a second outcome would be on its way by now

    FUZZ_CHECK(outcomes == 1);
    FUZZ_CHECK(status == AbstractAuthenticator::Success || !token.isValid());
    const QList<QByteArray> &sent = network.sent();
    FUZZ_CHECK(sent.size() == 1 || sent.size() == 2);
    if (sent.size() == 1) {
        // Refused, or no challenge this key could answer: the login ends without a second request.
        FUZZ_CHECK(status != AbstractAuthenticator::Success);
        return 0;
    }
    // A second request only after a 200 with a challenge, and it names that challenge.
    FUZZ_CHECK(answers.at(0).status == 200);
    const QJsonObject challenge = QJsonDocument::fromJson(answers.at(0).body).object();
    const QJsonObject response = QJsonDocument::fromJson(sent.at(1)).object();
    FUZZ_CHECK(response.value(QLatin1String("challengeId")).toString() ==
               challenge.value(QLatin1String("id")).toString());
    FUZZ_CHECK((status == AbstractAuthenticator::Success) == (answers.value(1).status == 200));
    return 0;
}
