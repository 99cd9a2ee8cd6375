// What the identity chain costs over the signature checks it cannot avoid: a three-link chain is
// built and checked with AccountIdentity::loadChain() and verifyChain(), and the same three
// signatures are verified with bare OpenSSL calls on keys and canonical bytes prepared in advance.
// Prints both times per chain and their ratio.
#include <VantroAccount/accountidentity.h>
#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QTextStream>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <time.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

using vn::crypto::JsonSignature;
using vn::crypto::PrivateKey;

namespace {

struct PreparedLink
{
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key{nullptr, &EVP_PKEY_free};
    QByteArray message;
    QByteArray signature;
};

bool verifyBare(const PreparedLink &link)
{
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    EVP_PKEY_CTX *keyContext = nullptr;
    if (EVP_DigestVerifyInit(context.get(), &keyContext, EVP_sha256(), nullptr, link.key.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING) != 1 ||
        EVP_PKEY_CTX_set_rsa_mgf1_md(keyContext, EVP_sha256()) != 1 ||
        EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, 32) != 1) {
        return false;
    }
    return EVP_DigestVerify(context.get(),
                            reinterpret_cast<const unsigned char *>(link.signature.constData()),
                            size_t(link.signature.size()),
                            reinterpret_cast<const unsigned char *>(link.message.constData()),
                            size_t(link.message.size())) == 1;
}

// CPU time of this thread: the machine is shared, and other processes' time slices must not count.
double threadCpuNanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

// Nanoseconds per call of @p run in one round of @p calls; negative when a call failed.
double round(const std::function<bool()> &run, int calls)
{
    const double start = threadCpuNanoseconds();
    for (int i = 0; i < calls; ++i) {
        if (!run()) {
            return -1;
        }
    }
    return (threadCpuNanoseconds() - start) / calls;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QTextStream out(stdout);

    // The built-in configuration names the development root; its private half signs the first link.
    QFile rootFile(QStringLiteral(VANTRO_DEV_ROOT_KEY));
    if (!rootFile.open(QIODevice::ReadOnly)) {
        out << "cannot read the development root key" << Qt::endl;
        return 1;
    }
    const PrivateKey rootKey(rootFile.readAll());

    // Account identities are RSA-3072, as the service hands them out.
    QJsonArray chain;
    std::vector<PreparedLink> links;
    PrivateKey signer = rootKey;
    QString parent;
    for (int index = 0; index < 3; ++index) {
        const PrivateKey key(vn::crypto::AbstractKey::RSA, 3072);
        const QString id = QStringLiteral("identity-%1").arg(index);
        QJsonObject record{{QStringLiteral("id"), id},
                           {QStringLiteral("name"), QStringLiteral("Identity %1").arg(index)},
                           {QStringLiteral("publicKey"), QString::fromLatin1(key.publicKey().toPEM())}};
        if (!parent.isEmpty()) {
            record.insert(QStringLiteral("parent"), parent);
        }
        record = JsonSignature::sign(record, signer);
        chain.append(record);

        PreparedLink link;
        const QByteArray signerPem = signer.publicKey().toPEM();
        std::unique_ptr<BIO, decltype(&BIO_free)> bio(
            BIO_new_mem_buf(signerPem.constData(), signerPem.size()), &BIO_free);
        link.key.reset(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
        link.message = JsonSignature::signedBytes(record);
        link.signature =
            QByteArray::fromBase64(record.value(QStringLiteral("signature")).toString().toLatin1());
        links.push_back(std::move(link));

        signer = key;
        parent = id;
    }

    const auto buildAndCheck = [&chain] {
        QObject instance;
        const vn::account::AccountIdentity *leaf = vn::account::AccountIdentity::loadChain(chain, &instance);
        return leaf && leaf->verifyChain();
    };
    const auto bareVerify = [&links] {
        for (const PreparedLink &link : links) {
            if (!verifyBare(link)) {
                return false;
            }
        }
        return true;
    };

    // The two alternate in short rounds and each keeps its best, so that a busy neighbour inflates
    // neither side more than the other.
    double chainTime = std::numeric_limits<double>::max();
    double floorTime = std::numeric_limits<double>::max();
    for (int i = 0; i < 20; ++i) {
        const double chainRound = round(buildAndCheck, 50);
        const double floorRound = round(bareVerify, 50);
        if (chainRound < 0 || floorRound < 0) {
            out << "verification failed" << Qt::endl;
            return 1;
        }
        chainTime = std::min(chainTime, chainRound);
        floorTime = std::min(floorTime, floorRound);
    }

    out << QStringLiteral(
               "identity chain, 3 links: %1 us per chain; bare OpenSSL verify of the same links: %2 us; "
               "ratio %3")
               .arg(chainTime / 1000, 0, 'f', 1)
               .arg(floorTime / 1000, 0, 'f', 1)
               .arg(chainTime / floorTime, 0, 'f', 2)
        << Qt::endl;
    return 0;
}
