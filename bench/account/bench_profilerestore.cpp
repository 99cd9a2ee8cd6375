// Restores the entries that a connected account keeps (token, session, consumer, an identity chain
// of three links and 1,000 resource records) through Profile, and compares the time with a bare
// QFile::readAll plus QJsonDocument::fromJson of the same files. Prints the medians and their ratio.
//
//   bench_profilerestore [rounds]

#include <VantroAccount/accesstoken.h>
#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUuid>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

using vn::account::AccessToken;
using vn::account::Account;
using vn::account::Profile;

namespace {

QRandomGenerator random(20240301);

QString uuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QByteArray randomBytes(int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (char &byte : bytes) {
        byte = char(random.bounded(256));
    }
    return bytes;
}

// Base64 text of a signature of the given key size, as the service writes it.
QString signature(int keyBits)
{
    return QString::fromLatin1(randomBytes(keyBits / 8).toBase64());
}

// PEM text of the shape of an RSA public key of the given size.
QString publicKeyPem(int keyBits)
{
    const QByteArray body = randomBytes(keyBits / 8 + 38).toBase64();
    QByteArray pem = "-----BEGIN PUBLIC KEY-----\n";
    for (int at = 0; at < body.size(); at += 64) {
        pem += body.mid(at, 64) + '\n';
    }
    return QString::fromLatin1(pem + "-----END PUBLIC KEY-----\n");
}

QJsonObject payloadFor(int index)
{
    switch (index % 4) {
    case 0:
        return {{QStringLiteral("server"), QStringLiteral("https://db%1.example.net:8443/").arg(index)},
                {QStringLiteral("name"), QStringLiteral("inventory-%1").arg(index)},
                {QStringLiteral("authoringOptions"),
                 QJsonObject{{QStringLiteral("readOnly"), index % 3 == 0},
                             {QStringLiteral("pageSize"), 50},
                             {QStringLiteral("locale"), QStringLiteral("de_DE")}}}};
    case 1:
        return {{QStringLiteral("type"), QStringLiteral("basic")},
                {QStringLiteral("realm"), QStringLiteral("db%1.example.net").arg(index - 1)},
                {QStringLiteral("credentials"),
                 QJsonObject{{QStringLiteral("user"), QStringLiteral("device-%1").arg(index)},
                             {QStringLiteral("password"), QString::fromLatin1(randomBytes(24).toBase64())}}}};
    case 2:
        return {{QStringLiteral("type"), QStringLiteral("oauth1")},
                {QStringLiteral("realm"), QStringLiteral("files%1.example.net").arg(index)},
                {QStringLiteral("credentials"),
                 QJsonObject{{QStringLiteral("consumerKey"), uuid()},
                             {QStringLiteral("consumerSecret"), QString::fromLatin1(randomBytes(32).toHex())},
                             {QStringLiteral("token"), uuid()},
                             {QStringLiteral("tokenSecret"), QString::fromLatin1(randomBytes(32).toHex())}}}};
    default:
        return {{QStringLiteral("url"), QStringLiteral("https://service%1.example.net/api/").arg(index)},
                {QStringLiteral("service"), QStringLiteral("reports-%1").arg(index)}};
    }
}

const char *const resourceTypes[] = {"vantro.resource.Database", "vantro.resource.DeviceCredentials",
                                     "vantro.resource.AuthorCredentials", "vantro.resource.Service"};

struct Entries
{
    QStringList jsonObjects;
    QStringList jsonArrays;
    QString token;
};

Entries writeConnectedAccount(Profile &profile)
{
    const QString rootId = uuid();
    QJsonArray identities;
    QString parent = rootId;
    for (int link = 0; link < 3; ++link) {
        const QString id = uuid();
        identities.append(QJsonObject{{QStringLiteral("id"), id},
                                      {QStringLiteral("name"), QStringLiteral("Identity %1").arg(link)},
                                      {QStringLiteral("publicKey"), publicKeyPem(3072)},
                                      {QStringLiteral("parent"), parent},
                                      {QStringLiteral("signature"), signature(link == 0 ? 4096 : 3072)}});
        parent = id;
    }
    QJsonArray resources;
    for (int index = 0; index < 1000; ++index) {
        resources.append(QJsonObject{{QStringLiteral("id"), uuid()},
                                     {QStringLiteral("type"), QLatin1String(resourceTypes[index % 4])},
                                     {QStringLiteral("owner"), parent},
                                     {QStringLiteral("issuer"), parent},
                                     {QStringLiteral("signature"), signature(3072)},
                                     {QStringLiteral("payload"), payloadFor(index)}});
    }
    QJsonArray permissions;
    for (int flags : {0x11, 0x13, 0x21, 0x41, 0x47, 0x20001}) {
        permissions.append(flags);
    }
    const QJsonObject consumer{
        {QStringLiteral("id"), uuid()},
        {QStringLiteral("name"), QStringLiteral("Ada Example")},
        {QStringLiteral("email"), QStringLiteral("ada@example.net")},
        {QStringLiteral("permissions"), permissions},
        {QStringLiteral("roles"), QJsonArray{QStringLiteral("author"), QStringLiteral("reviewer")}}};
    const QJsonObject session{{QStringLiteral("id"), uuid()},
                              {QStringLiteral("hostInfo"), QStringLiteral("workstation.example.net")},
                              {QStringLiteral("since"), QStringLiteral("2024-03-01T10:00:00Z")}};
    const QByteArray claims = QJsonDocument(QJsonObject{{QStringLiteral("iss"), QStringLiteral("account")},
                                                        {QStringLiteral("sub"), uuid()},
                                                        {QStringLiteral("aud"), QStringLiteral("api")},
                                                        {QStringLiteral("iat"), 1709287200},
                                                        {QStringLiteral("exp"), 1709290800}})
                                  .toJson(QJsonDocument::Compact);
    const QString token =
        QStringLiteral("eyJ0eXAiOiJKV1QiLCJhbGciOiJSUzI1NiJ9.") +
        QString::fromLatin1(claims.toBase64(QByteArray::OmitTrailingEquals)) + QLatin1Char('.') +
        QString::fromLatin1(
            randomBytes(256).toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));

    bool written = profile.write(QStringLiteral("accessToken"), AccessToken(token));
    written &= profile.write(QStringLiteral("sessionInfo"), session);
    written &= profile.write(QStringLiteral("consumerInfo"), consumer);
    written &= profile.write(QStringLiteral("identity"), identities);
    written &= profile.write(QStringLiteral("resources"), resources);
    if (!written) {
        std::fprintf(stderr, "could not write the profile\n");
        std::exit(1);
    }
    return {{QStringLiteral("sessionInfo"), QStringLiteral("consumerInfo")},
            {QStringLiteral("identity"), QStringLiteral("resources")},
            QStringLiteral("accessToken")};
}

// Every parsed value feeds this, so the optimiser cannot drop a read.
qint64 sink = 0;

void restoreThroughProfile(const Profile &profile, const Entries &entries)
{
    sink += QByteArray(profile.readToken(entries.token)).size();
    for (const QString &entry : entries.jsonObjects) {
        sink += profile.readObject(entry).size();
    }
    for (const QString &entry : entries.jsonArrays) {
        sink += profile.readArray(entry).size();
    }
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void restoreBare(const QDir &folder, const Entries &entries)
{
    sink += readFile(folder.absoluteFilePath(entries.token)).size();
    for (const QString &entry : entries.jsonObjects) {
        sink += QJsonDocument::fromJson(readFile(folder.absoluteFilePath(entry))).object().size();
    }
    for (const QString &entry : entries.jsonArrays) {
        sink += QJsonDocument::fromJson(readFile(folder.absoluteFilePath(entry))).array().size();
    }
}

double median(std::vector<qint64> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2] / 1000.0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const int rounds = argc > 1 ? std::max(1, QByteArray(argv[1]).toInt()) : 200;

    QTemporaryDir location;
    if (!location.isValid()) {
        std::fprintf(stderr, "no temporary folder\n");
        return 1;
    }
    qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(location.path()));
    application.setProperty("profile", QStringLiteral("bench"));
    Profile &profile = Account::profile();
    const Entries entries = writeConnectedAccount(profile);
    const QDir folder(QDir(location.path()).absoluteFilePath(profile.name()));

    qint64 bytes = 0;
    for (const QString &entry : profile.entries()) {
        bytes += QFileInfo(folder.absoluteFilePath(entry)).size();
    }

    // Alternating rounds, so that both ways see the same cache and clock conditions.
    std::vector<qint64> throughProfile;
    std::vector<qint64> bare;
    QElapsedTimer timer;
    for (int round = -5; round < rounds; ++round) {
        timer.start();
        restoreThroughProfile(profile, entries);
        const qint64 profileTime = timer.nsecsElapsed();
        timer.start();
        restoreBare(folder, entries);
        const qint64 bareTime = timer.nsecsElapsed();
        if (round >= 0) {
            throughProfile.push_back(profileTime);
            bare.push_back(bareTime);
        }
    }

    const double profileMedian = median(throughProfile);
    const double bareMedian = median(bare);
    std::printf("profile restore (%d entries, %lld bytes), median of %d rounds: Profile %.1f us, "
                "QFile::readAll + QJsonDocument::fromJson %.1f us, ratio %.3f\n",
                int(profile.entries().size()), static_cast<long long>(bytes), rounds, profileMedian,
                bareMedian, profileMedian / bareMedian);
    return sink > 0 ? 0 : 1;
}
