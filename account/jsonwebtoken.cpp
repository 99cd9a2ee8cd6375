#include "jsonwebtoken_p.h"

#include "logging_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QSet>

#include <cmath>
#include <limits>

namespace vn::account {

namespace {

const QSet<QString> &supportedAlgorithms()
{
    static const QSet<QString> algorithms{
        QStringLiteral("HS256"), QStringLiteral("HS384"), QStringLiteral("HS512"),  QStringLiteral("PS256"),
        QStringLiteral("PS384"), QStringLiteral("PS512"), QStringLiteral("RS256"),  QStringLiteral("RS384"),
        QStringLiteral("RS512"), QStringLiteral("ES256"), QStringLiteral("ES256K"), QStringLiteral("ES384"),
        QStringLiteral("ES512"), QStringLiteral("EdDSA"),
    };
    return algorithms;
}

// The service writes both segments in the standard base64 alphabet, so they are decoded with it as
// they stand. URL-safe characters are skipped by the decoder rather than mapped; such a segment
// decodes to shifted bytes and then fails as JSON, which is how a foreign token is turned away.
QJsonObject decodeSegment(const QByteArray &segment)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromBase64(segment), &error);
    if (error.error != QJsonParseError::NoError) {
        qCCritical(lcAccountService).noquote() << "Failed to parse JWT token data:" << error.errorString();
        return QJsonObject();
    }
    return document.object();
}

// Times are 32-bit seconds since the epoch; a fraction, an overflow or anything but a number
// counts as absent.
QDateTime secondsSinceEpoch(const QJsonValue &value)
{
    const double number = value.toDouble(0.0);
    if (!(number > 0.0) || number > double(std::numeric_limits<qint32>::max()) ||
        std::trunc(number) != number) {
        return QDateTime();
    }
    return QDateTime::fromSecsSinceEpoch(qint64(number), Qt::LocalTime, 0);
}

} // namespace

JsonWebToken::JsonWebToken(const QByteArray &compact)
{
    parse(compact);
}

void JsonWebToken::parse(const QByteArray &compact)
{
    const QList<QByteArray> pieces = compact.split('.');
    if (pieces.size() != 3) {
        return;
    }
    const QJsonObject header = decodeSegment(pieces.at(0));
    const QJsonObject payload = decodeSegment(pieces.at(1));

    if (header.value(QLatin1String("typ")).toString() != QLatin1String("JWT")) {
        return;
    }
    const QString algorithm = header.value(QLatin1String("alg")).toString();
    if (!supportedAlgorithms().contains(algorithm)) {
        return;
    }
    alg = algorithm;
    valid = !payload.isEmpty();
    if (!valid) {
        return;
    }

    raw = compact;
    iss = payload.value(QLatin1String("iss")).toString();
    iat = secondsSinceEpoch(payload.value(QLatin1String("iat")));
    exp = secondsSinceEpoch(payload.value(QLatin1String("exp")));
    const QJsonValue audience = payload.value(QLatin1String("aud"));
    if (audience.isString()) {
        aud.append(audience.toString());
    } else if (audience.isArray()) {
        const QJsonArray entries = audience.toArray();
        for (const QJsonValue &entry : entries) {
            aud.append(entry.toString());
        }
    }
    sub = payload.value(QLatin1String("sub")).toString();
}

QDebug operator<<(QDebug debug, const JsonWebToken &token)
{
    const QDebugStateSaver saver(debug);
    debug.noquote().nospace();
    debug << "[ alg: " << token.alg;
    if (!token.iss.isEmpty()) {
        debug << ", iss: " << token.iss;
    }
    if (token.iat.isValid()) {
        debug << ", iat: " << token.iat.toString(Qt::ISODate);
    }
    if (!token.sub.isEmpty()) {
        debug << ", sub: " << token.sub;
    }
    if (!token.aud.isEmpty()) {
        debug << ", aud: {" << token.aud.join(QLatin1String(", ")) << "}";
    }
    if (token.exp.isValid()) {
        debug << ", exp: " << token.exp.toString(Qt::ISODate);
    }
    debug << " ]";
    return debug;
}

} // namespace vn::account
