#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QByteArray>
#include <QDateTime>
#include <QDebug>
#include <QString>
#include <QStringList>

namespace vn::account {

/// The decoded view of a compact token: its algorithm and the registered claims.
///
/// Nothing here checks a signature, an issuer, an audience or a time; the caller compares exp with
/// the clock itself. Exported only in builds with the tests, which reach it; the header is not installed.
struct VANTROACCOUNT_AUTOTEST_EXPORT JsonWebToken
{
    JsonWebToken() = default;
    explicit JsonWebToken(const QByteArray &compact);

    /// Reads "header.payload.signature". On success sets valid and the fields below; a rejected
    /// token leaves the structure as it was.
    void parse(const QByteArray &compact);

    bool valid = false;
    QByteArray raw;
    QString alg;
    QStringList aud;
    QString iss;
    QString sub;
    QDateTime iat;
    QDateTime exp;
};

VANTROACCOUNT_AUTOTEST_EXPORT QDebug operator<<(QDebug debug, const JsonWebToken &token);

} // namespace vn::account
