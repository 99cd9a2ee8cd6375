#include "fault.h"

namespace vn::devservice {

bool Fault::isValid() const
{
    return !path.isEmpty() && count > 0 && skip >= 0 && (status == 0 || (status >= 100 && status <= 599)) &&
           delay >= 0 && delay <= MaximumDelay && padTo >= 0 && padTo <= MaximumPadding;
}

Fault Fault::normalised() const
{
    Fault fault = *this;
    if (fault.path.startsWith(QLatin1Char('/'))) {
        fault.path.remove(0, 1);
    }
    fault.method = fault.method.toUpper();
    return fault;
}

bool Fault::matches(const QByteArray &requestMethod, const QString &requestPath) const
{
    if (!method.isEmpty() && method != requestMethod) {
        return false;
    }
    if (path.endsWith(QLatin1Char('*'))) {
        return requestPath.startsWith(QStringView(path).chopped(1));
    }
    return requestPath == path;
}

QJsonObject Fault::toJson() const
{
    QJsonObject object{
        {QStringLiteral("path"), path},
        {QStringLiteral("count"), count},
        {QStringLiteral("skip"), skip},
        {QStringLiteral("status"), status},
        {QStringLiteral("delay"), delay},
        {QStringLiteral("malformedBody"), malformedBody},
        {QStringLiteral("dropConnection"), dropConnection},
        {QStringLiteral("truncateBody"), truncateBody},
        {QStringLiteral("padTo"), padTo},
        {QStringLiteral("badSignature"), badSignature},
    };
    if (!method.isEmpty()) {
        object.insert(QStringLiteral("method"), QString::fromLatin1(method));
    }
    if (!body.isEmpty()) {
        object.insert(QStringLiteral("body"), QString::fromUtf8(body));
    }
    return object;
}

Fault Fault::fromJson(const QJsonObject &object, QString *errorMessage)
{
    Fault fault;
    fault.count = 0;
    auto fail = [&](const char *what) {
        if (errorMessage) {
            *errorMessage = QLatin1String(what);
        }
        fault.count = 0;
        return fault;
    };
    auto integer = [&](const char *key, int fallback, int *value) {
        const QJsonValue found = object.value(QLatin1String(key));
        if (found.isUndefined()) {
            *value = fallback;
            return true;
        }
        const double number = found.toDouble(-1);
        if (!found.isDouble() || number < 0 || number > 1e9 || number != double(qint64(number))) {
            return false;
        }
        *value = int(number);
        return true;
    };
    auto boolean = [&](const char *key, bool *value) {
        const QJsonValue found = object.value(QLatin1String(key));
        if (!found.isUndefined() && !found.isBool()) {
            return false;
        }
        *value = found.toBool();
        return true;
    };

    const QJsonValue path = object.value(QLatin1String("path"));
    if (!path.isString() || path.toString().isEmpty()) {
        return fail("\"path\" must be a non-empty string");
    }
    fault.path = path.toString();
    const QJsonValue method = object.value(QLatin1String("method"));
    if (!method.isUndefined() && !method.isString()) {
        return fail("\"method\" must be a string");
    }
    fault.method = method.toString().toLatin1();
    if (!integer("count", 1, &fault.count) || !integer("skip", 0, &fault.skip) ||
        !integer("status", 0, &fault.status) || !integer("delay", 0, &fault.delay) ||
        !integer("padTo", 0, &fault.padTo)) {
        return fail("\"count\", \"skip\", \"status\", \"delay\" and \"padTo\" must be non-negative integers");
    }
    if (!boolean("malformedBody", &fault.malformedBody) ||
        !boolean("dropConnection", &fault.dropConnection) || !boolean("truncateBody", &fault.truncateBody) ||
        !boolean("badSignature", &fault.badSignature)) {
        return fail(
            "\"malformedBody\", \"dropConnection\", \"truncateBody\" and \"badSignature\" must be booleans");
    }
    const QJsonValue body = object.value(QLatin1String("body"));
    if (!body.isUndefined() && !body.isString()) {
        return fail("\"body\" must be a string");
    }
    fault.body = body.toString().toUtf8();
    fault = fault.normalised();
    if (!fault.isValid()) {
        return fail("\"count\" must be at least 1, \"status\" from 100 to 599, \"delay\" at most 60000 and "
                    "\"padTo\" at most 67108864");
    }
    return fault;
}

} // namespace vn::devservice
