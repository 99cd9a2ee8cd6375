// Compact tokens as the service hands them out: the access token that carries them, and the decoded
// view of their header and claims.

#include "autotest_p.h"
#include "fuzzsupport.h"

#include <VantroAccount/accesstoken.h>

#include <QJsonDocument>
#include <QJsonObject>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    const QByteArray input(reinterpret_cast<const char *>(data), int(size));

    const vn::account::JsonWebToken token(input);
    FUZZ_CHECK(!token.valid || (token.raw == input && !token.alg.isEmpty()));
    QString text;
    QDebug(&text) << token;

    const vn::account::AccessToken fromText(QString::fromUtf8(input.constData(), input.size()));
    FUZZ_CHECK(fromText.isValid() == !input.isEmpty());
    const QByteArray latin1 = QByteArray(vn::account::AccessToken(QJsonDocument::fromJson(input).object()));
    Q_UNUSED(latin1)
    return 0;
}
