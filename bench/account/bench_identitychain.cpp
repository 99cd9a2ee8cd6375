// What the identity chain costs over the signature checks it cannot avoid: a three-link chain is
// built and checked with AccountIdentity::loadChain() and verifyChain(), and the same three
// signatures are verified with bare OpenSSL calls on keys and canonical bytes prepared in advance.

#include "benchsupport.h"

#include <VantroAccount/accountidentity.h>
#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>

#include <vector>

using vn::crypto::JsonSignature;
using vn::crypto::PrivateKey;

namespace {

struct PreparedLink
{
    bench::Key key;
    QByteArray message;
    QByteArray signature;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);

    // The built-in configuration names the development root; its private half signs the first link.
    QFile rootFile(QStringLiteral(VANTRO_DEV_ROOT_KEY));
    if (!rootFile.open(QIODevice::ReadOnly)) {
        bench::fail("identitychain", "cannot read the development root key");
    }

    // Account identities are RSA-3072, as the service hands them out.
    QJsonArray chain;
    std::vector<PreparedLink> links;
    PrivateKey signer(rootFile.readAll());
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
        links.push_back(
            {bench::readPublicKey(signer.publicKey().toPEM()), JsonSignature::signedBytes(record),
             QByteArray::fromBase64(record.value(QStringLiteral("signature")).toString().toLatin1())});
        signer = key;
        parent = id;
    }

    bench::compare("identitychain",
                   {"loadChain + verifyChain, 3 links",
                    [&chain] {
                        QObject instance;
                        const auto *leaf = vn::account::AccountIdentity::loadChain(chain, &instance);
                        if (!leaf || !leaf->verifyChain()) {
                            bench::fail("identitychain", "the chain does not verify");
                        }
                    }},
                   {"bare OpenSSL verify of the same links",
                    [&links] {
                        for (const PreparedLink &link : links) {
                            if (!bench::verifyPss(link.key.get(), link.message, link.signature)) {
                                bench::fail("identitychain", "a link does not verify");
                            }
                        }
                    }},
                   {20, 50}, 2.0);
    return 0;
}
