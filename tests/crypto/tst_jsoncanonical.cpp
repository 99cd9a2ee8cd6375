#include <VantroCrypto/jsoncanonical.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <cstring>
#include <limits>

using vn::crypto::JsonCanonical;

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

double doubleFromBits(quint64 bits)
{
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace

class TestJsonCanonical : public QObject
{
    Q_OBJECT

private slots:
    void canonicalForm_data();
    void canonicalForm();
    void noCanonicalForm_data();
    void noCanonicalForm();
};

// The conformance set: every input document against its expected bytes, and every line of
// numbers.txt as a number value against ECMAScript's text for it.
void TestJsonCanonical::canonicalForm_data()
{
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QByteArray>("expected");

    const QDir jcs(QStringLiteral(VANTRO_TEST_DATA_DIR "/jcs"));
    const QStringList documents = jcs.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name);
    const QStringList inputs =
        QDir(jcs.filePath(QStringLiteral("input"))).entryList({QStringLiteral("*.json")});
    QVERIFY2(inputs.size() >= 6, qPrintable(jcs.path()));
    for (const QString &name : inputs) {
        QJsonParseError error;
        const QJsonDocument document =
            QJsonDocument::fromJson(readFile(jcs.filePath(QStringLiteral("input/") + name)), &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        const QJsonValue value =
            document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
        QTest::addRow("%s", qPrintable(name))
            << value << readFile(jcs.filePath(QStringLiteral("output/") + name));
    }

    const QByteArray numbers = readFile(jcs.filePath(QStringLiteral("numbers.txt")));
    int lineNumber = 0;
    for (const QByteArray &line : numbers.split('\n')) {
        ++lineNumber;
        if (line.isEmpty())
            continue;
        const int comma = line.indexOf(',');
        bool ok = false;
        const quint64 bits = line.left(comma).toULongLong(&ok, 16);
        QVERIFY2(comma > 0 && ok, line.constData());
        QTest::addRow("numbers.txt:%d %s", lineNumber, line.left(comma).constData())
            << QJsonValue(doubleFromBits(bits)) << line.mid(comma + 1);
    }
    QCOMPARE(lineNumber, 100001); // the last line ends with a newline too

    // Qt keeps integer literals as qint64; their canonical form is that of the nearest double.
    const auto parsed = [](const char *json) { return QJsonDocument::fromJson(json).array().first(); };
    QTest::newRow("integer beyond 2^53") << parsed("[9007199254740993]") << QByteArray("9007199254740992");
    QTest::newRow("largest qint64") << parsed("[9223372036854775807]") << QByteArray("9223372036854776000");
    QTest::newRow("negative zero literal") << parsed("[-0]") << QByteArray("0");
}

void TestJsonCanonical::canonicalForm()
{
    QFETCH(QJsonValue, value);
    QFETCH(QByteArray, expected);
    QCOMPARE(JsonCanonical::serialize(value), expected);
    if (value.isDouble())
        QCOMPARE(JsonCanonical::formatNumber(value.toDouble()), expected);
}

void TestJsonCanonical::noCanonicalForm_data()
{
    QTest::addColumn<QJsonValue>("value");

    QTest::newRow("NaN") << QJsonValue(std::numeric_limits<double>::quiet_NaN());
    QTest::newRow("infinity inside an object") << QJsonValue(
        QJsonObject{{QStringLiteral("a"), 1},
                    {QStringLiteral("b"), QJsonArray{std::numeric_limits<double>::infinity()}}});
    QTest::newRow("lone surrogate in a key") << QJsonValue(QJsonObject{{QString(QChar(0xd800)), 1}});
    QTest::newRow("lone low surrogate") << QJsonValue(QString(QChar(0xdc00)) + QLatin1Char('x'));
    QTest::newRow("undefined") << QJsonValue(QJsonValue::Undefined);
}

void TestJsonCanonical::noCanonicalForm()
{
    QFETCH(QJsonValue, value);
    QVERIFY(JsonCanonical::serialize(value).isEmpty());
}

QTEST_GUILESS_MAIN(TestJsonCanonical)
#include "tst_jsoncanonical.moc"
