// Restores the entries that a connected account keeps (token, session, consumer, an identity chain
// of three links and 1,000 resource records, about 1 MB in all) through Profile, and compares the
// time with a bare QFile::readAll plus QJsonDocument::fromJson of the same files, on the wall clock.
//
//   bench_profilerestore [--rounds N, default 200]

#include "benchsupport.h"

#include <VantroAccount/accesstoken.h>
#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUuid>

using vn::account::Profile;

namespace {

const QString TokenEntry = QStringLiteral("accessToken");
const QStringList ObjectEntries{QStringLiteral("sessionInfo"), QStringLiteral("consumerInfo")};
const QStringList ArrayEntries{QStringLiteral("identity"), QStringLiteral("resources")};

QString uuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

// Base64 text of random bytes, as long as the signatures and keys that the service writes.
QString randomBase64(int bytes, QByteArray::Base64Options options = QByteArray::Base64Encoding)
{
    QByteArray data(bytes, Qt::Uninitialized);
    for (char &byte : data) {
        byte = char(QRandomGenerator::global()->bounded(256));
    }
    return QString::fromLatin1(data.toBase64(options));
}

QJsonObject json(const QString &text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

// Only the size and shape matter here: restoring reads the entries, it verifies nothing.
bool writeConnectedAccount(Profile &profile)
{
    // Three links, each with a 3072-bit key and signed by the link above it (the first by the
    // 4096-bit root); the last one issued the resources.
    QJsonArray identities;
    QString parent = uuid();
    for (int link = 0; link < 3; ++link) {
        const QString id = uuid();
        identities.append(
            QJsonObject{{QStringLiteral("id"), id},
                        {QStringLiteral("name"), QStringLiteral("Identity %1").arg(link)},
                        {QStringLiteral("publicKey"),
                         QStringLiteral("-----BEGIN PUBLIC KEY-----\n%1\n-----END PUBLIC KEY-----\n")
                             .arg(randomBase64(422))},
                        {QStringLiteral("parent"), parent},
                        {QStringLiteral("signature"), randomBase64(link == 0 ? 512 : 384)}});
        parent = id;
    }
    QJsonArray resources = bench::resourceRecords(1000);
    for (QJsonValueRef record : resources) {
        QJsonObject issued = record.toObject();
        issued.insert(QStringLiteral("owner"), parent);
        issued.insert(QStringLiteral("issuer"), parent);
        issued.insert(QStringLiteral("signature"), randomBase64(384));
        record = issued;
    }
    const QJsonObject session =
        json(QStringLiteral(
                 R"({"id": "%1", "hostInfo": "workstation.example.net", "since": "2024-03-01T10:00:00Z"})")
                 .arg(uuid()));
    const QJsonObject consumer = json(
        QStringLiteral(R"({"id": "%1", "name": "Ada Example", "email": "ada@example.net",)"
                       R"( "permissions": [17, 19, 33, 65, 71, 131073], "roles": ["author", "reviewer"]})")
            .arg(uuid()));
    const QByteArray claims =
        QStringLiteral(R"({"aud":"api","exp":1709290800,"iat":1709287200,"iss":"account","sub":"%1"})")
            .arg(uuid())
            .toUtf8();
    const QByteArray::Base64Options url = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;
    const QString token = QStringLiteral("eyJ0eXAiOiJKV1QiLCJhbGciOiJSUzI1NiJ9.%1.%2")
                              .arg(QString::fromLatin1(claims.toBase64(url)), randomBase64(256, url));

    return profile.write(TokenEntry, vn::account::AccessToken(token)) &&
           profile.write(ObjectEntries[0], session) && profile.write(ObjectEntries[1], consumer) &&
           profile.write(ArrayEntries[0], identities) && profile.write(ArrayEntries[1], resources);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QTemporaryDir location;
    if (!location.isValid()) {
        bench::fail("profilerestore", "no temporary folder");
    }
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(location.path()));
    application.setProperty("profile", QStringLiteral("bench"));
    Profile &profile = vn::account::Account::profile();
    if (!writeConnectedAccount(profile) || profile.readArray(ArrayEntries[1]).size() != 1000) {
        bench::fail("profilerestore", "the profile does not write and read back");
    }
    const QDir folder(QDir(location.path()).absoluteFilePath(profile.name()));

    const auto throughProfile = [&profile] {
        bench::sink += QByteArray(profile.readToken(TokenEntry)).size();
        for (const QString &entry : ObjectEntries) {
            bench::sink += profile.readObject(entry).size();
        }
        for (const QString &entry : ArrayEntries) {
            bench::sink += profile.readArray(entry).size();
        }
    };
    const auto bare = [&folder] {
        bench::sink += readFile(folder.absoluteFilePath(TokenEntry)).size();
        for (const QString &entry : ObjectEntries) {
            bench::sink += QJsonDocument::fromJson(readFile(folder.absoluteFilePath(entry))).object().size();
        }
        for (const QString &entry : ArrayEntries) {
            bench::sink += QJsonDocument::fromJson(readFile(folder.absoluteFilePath(entry))).array().size();
        }
    };
    bench::compare("profilerestore", {"Profile", throughProfile},
                   {"QFile::readAll + QJsonDocument::fromJson", bare},
                   {bench::option(argc, argv, "--rounds", 200), 1, 5, bench::Clock::Wall}, 1.2);
    return 0;
}
