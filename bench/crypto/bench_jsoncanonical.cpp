// JsonCanonical::serialize against QJsonDocument::toJson(Compact) of the same document: the cost
// of the canonical form next to Qt's own (unsorted, non-canonical) compact writer.

#include "benchsupport.h"

#include <VantroCrypto/jsoncanonical.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace vn::crypto;

namespace {

// A list of records with the usual mix: short ASCII keys, strings with and without escapes and
// non-ASCII text, integers, fractions, booleans, nulls and nesting.
QJsonDocument document()
{
    QJsonArray records;
    for (int i = 0; i < 500; ++i) {
        records.append(QJsonObject{
            {QStringLiteral("id"), i},
            {QStringLiteral("uuid"),
             QStringLiteral("6f1c2a9e-3b4d-4e5f-8a7b-%1").arg(i, 12, 10, QLatin1Char('0'))},
            {QStringLiteral("name"), QStringLiteral("Zo\u00eb \"%1\" \u20ac\n").arg(i)},
            {QStringLiteral("score"), i * 0.37},
            {QStringLiteral("created"), 1700000000.0 + i},
            {QStringLiteral("active"), i % 3 == 0},
            {QStringLiteral("parent"), QJsonValue::Null},
            {QStringLiteral("tags"), QJsonArray{QStringLiteral("alpha"), QStringLiteral("beta"), i}},
            {QStringLiteral("limits"), QJsonObject{{QStringLiteral("seats"), 25 + i},
                                                   {QStringLiteral("storage"), 1.5e10},
                                                   {QStringLiteral("ratio"), 1.0 / (i + 1)}}},
        });
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("records"), records}, {QStringLiteral("version"), 3}});
}

} // namespace

int main()
{
    const QJsonDocument doc = document();
    const QJsonObject object = doc.object();
    // Not slower than Qt's own writer, although it sorts members and formats numbers canonically.
    bench::compare(
        "jsoncanonical",
        {"JsonCanonical::serialize", [&] { bench::sink += JsonCanonical::serialize(object).size(); }},
        {"QJsonDocument::toJson(Compact)", [&] { bench::sink += doc.toJson(QJsonDocument::Compact).size(); }},
        {40, 10}, 2.0);
    return 0;
}
