#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vn::test {

/// JSON written with single quotes, which read better in C++ string literals.
inline QByteArray json(QByteArray text)
{
    return text.replace('\'', '"');
}

inline QJsonObject jsonObject(const char *text)
{
    return QJsonDocument::fromJson(json(text)).object();
}

/// The members of @p actual that @p expected names, to compare with @p expected.
inline QJsonObject subset(const QJsonObject &actual, const QJsonObject &expected)
{
    QJsonObject result;
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        result.insert(it.key(), actual.value(it.key()));
    }
    return result;
}

} // namespace vn::test
