// Restores the entries that a connected account keeps (token, session, consumer, an identity chain
// of three links and 1,000 resource records) through Profile, and compares the time with a bare
// QFile::readAll plus QJsonDocument::fromJson of the same files, on the wall clock.
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

QJsonObject json(const QString &text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

QJsonObject payloadFor(int index)
{
    const QString number = QString::number(index);
    switch (index % 4) {
    case 0:
        return json(
            QStringLiteral(R"({"server": "https://db%1.example.net:8443/", "name": "inventory-%1",)"
                           R"( "authoringOptions": {"readOnly": %2, "pageSize": 50, "locale": "de_DE"}})")
                .arg(number, QLatin1String(index % 3 ? "false" : "true")));
    case 1:
        return json(
            QStringLiteral(R"({"type": "basic", "realm": "db%1.example.net",)"
                           R"( "credentials": {"user": "device-%2", "password": "%3"}})")
                .arg(QString::number(index - 1), number, QString::fromLatin1(randomBytes(24).toBase64())));
    case 2:
        return json(
            QStringLiteral(
                R"({"type": "oauth1", "realm": "files%1.example.net", "credentials":)"
                R"( {"consumerKey": "%2", "consumerSecret": "%3", "token": "%4", "tokenSecret": "%5"}})")
                .arg(number, uuid(), QString::fromLatin1(randomBytes(32).toHex()), uuid(),
                     QString::fromLatin1(randomBytes(32).toHex())));
    default:
        return json(
            QStringLiteral(R"({"url": "https://service%1.example.net/api/", "service": "reports-%1"})")
                .arg(number));
    }
}

const char *const resourceTypes[] = {"vantro.resource.Database", "vantro.resource.DeviceCredentials",
                                     "vantro.resource.AuthorCredentials", "vantro.resource.Service"};
const QStringList objectEntries{QStringLiteral("sessionInfo"), QStringLiteral("consumerInfo")};
const QStringList arrayEntries{QStringLiteral("identity"), QStringLiteral("resources")};
const QString tokenEntry = QStringLiteral("accessToken");

void writeConnectedAccount(Profile &profile)
{
    QJsonArray identities;
    QString parent = uuid();
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
    const QJsonObject consumer = json(
        QStringLiteral(R"({"id": "%1", "name": "Ada Example", "email": "ada@example.net",)"
                       R"( "permissions": [17, 19, 33, 65, 71, 131073], "roles": ["author", "reviewer"]})")
            .arg(uuid()));
    const QJsonObject session =
        json(QStringLiteral(
                 R"({"id": "%1", "hostInfo": "workstation.example.net", "since": "2024-03-01T10:00:00Z"})")
                 .arg(uuid()));
    const QByteArray claims =
        QStringLiteral(R"({"aud":"api","exp":1709290800,"iat":1709287200,"iss":"account","sub":"%1"})")
            .arg(uuid())
            .toUtf8();
    const QString token =
        QStringLiteral("eyJ0eXAiOiJKV1QiLCJhbGciOiJSUzI1NiJ9.") +
        QString::fromLatin1(claims.toBase64(QByteArray::OmitTrailingEquals)) + QLatin1Char('.') +
        QString::fromLatin1(
            randomBytes(256).toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));

    bool written = profile.write(tokenEntry, AccessToken(token));
    written &= profile.write(objectEntries[0], session) && profile.write(objectEntries[1], consumer);
    written &= profile.write(arrayEntries[0], identities) && profile.write(arrayEntries[1], resources);
    if (!written) {
        bench::fail("profilerestore", "could not write the profile");
    }
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
    Profile &profile = Account::profile();
    writeConnectedAccount(profile);
    const QDir folder(QDir(location.path()).absoluteFilePath(profile.name()));
    if (profile.readArray(QStringLiteral("resources")).size() != 1000) {
        bench::fail("profilerestore", "the profile does not read back");
    }

    const auto throughProfile = [&profile] {
        bench::sink += QByteArray(profile.readToken(tokenEntry)).size();
        for (const QString &entry : objectEntries) {
            bench::sink += profile.readObject(entry).size();
        }
        for (const QString &entry : arrayEntries) {
            bench::sink += profile.readArray(entry).size();
        }
    };
    const auto bare = [&folder] {
        bench::sink += readFile(folder.absoluteFilePath(tokenEntry)).size();
        for (const QString &entry : objectEntries) {
            bench::sink += QJsonDocument::fromJson(readFile(folder.absoluteFilePath(entry))).object().size();
        }
        for (const QString &entry : arrayEntries) {
            bench::sink += QJsonDocument::fromJson(readFile(folder.absoluteFilePath(entry))).array().size();
        }
    };
    bench::compare("profilerestore", {"Profile", throughProfile},
                   {"QFile::readAll + QJsonDocument::fromJson", bare},
                   {bench::option(argc, argv, "--rounds", 200), 1, 5, bench::Clock::Wall}, 1.2);
    return 0;
}
