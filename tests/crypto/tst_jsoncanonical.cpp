#include <VantroCrypto/jsoncanonical.h>

#include "testio.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <cstring>

using vn::crypto::JsonCanonical;
using vn::test::readFile;

class TestJsonCanonical : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // The conformance set: every input document against its expected bytes, and every line of
    // numbers.txt as a number against ECMAScript's text for it. Empty: the value has no canonical form.
    void canonicalForm_data()
    {
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<QByteArray>("expected");
        const QDir jcs(QStringLiteral(VANTRO_TEST_DATA_DIR "/jcs"));
        const QStringList inputs = QDir(jcs.filePath("input")).entryList({"*.json"});
        QVERIFY2(inputs.size() >= 6, qPrintable(jcs.path()));
        for (const QString &name : inputs) {
            const QJsonDocument document = QJsonDocument::fromJson(readFile(jcs.filePath("input/" + name)));
            QVERIFY2(!document.isNull(), qPrintable(name));
            QTest::addRow("%s", qPrintable(name))
                << (document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array()))
                << readFile(jcs.filePath("output/" + name));
        }
        const QList<QByteArray> numbers = readFile(jcs.filePath("numbers.txt")).split('\n');
        QCOMPARE(numbers.size(), 100001); // the last line ends with a newline too
        for (int line = 0; line < numbers.size() - 1; ++line) {
            const int comma = numbers[line].indexOf(',');
            bool ok = false;
            const quint64 bits = numbers[line].left(comma).toULongLong(&ok, 16);
            QVERIFY2(comma > 0 && ok, numbers[line].constData());
            double value;
            std::memcpy(&value, &bits, sizeof value);
            QTest::addRow("numbers.txt:%d", line + 1) << QJsonValue(value) << numbers[line].mid(comma + 1);
        }
        // Qt keeps integer literals as qint64; their canonical form is that of the nearest double.
        const auto parsed = [](const char *json) { return QJsonDocument::fromJson(json).array().first(); };
        QTest::newRow("integer beyond 2^53")
            << parsed("[9007199254740993]") << QByteArray("9007199254740992");
        QTest::newRow("largest qint64")
            << parsed("[9223372036854775807]") << QByteArray("9223372036854776000");
        QTest::newRow("negative zero literal") << parsed("[-0]") << QByteArray("0");
        // The last control character is escaped, DEL is not.
        QTest::newRow("control characters")
            << QJsonValue(QString::fromLatin1("\x1f \x7f")) << QByteArray("\"\\u001f \x7f\"");
        QTest::newRow("NaN") << QJsonValue(qQNaN()) << QByteArray();
        QTest::newRow("infinity deep inside")
            << QJsonValue(QJsonObject{{"a", 1}, {"b", QJsonArray{qInf()}}}) << QByteArray();
        QTest::newRow("lone surrogate in a key")
            << QJsonValue(QJsonObject{{QString(QChar(0xd800)), 1}}) << QByteArray();
        QTest::newRow("lone low surrogate") << QJsonValue(QString(QChar(0xdc00)) + 'x') << QByteArray();
        QTest::newRow("undefined") << QJsonValue(QJsonValue::Undefined) << QByteArray();
    }

    void canonicalForm()
    {
        QFETCH(QJsonValue, value);
        QFETCH(QByteArray, expected);
        QCOMPARE(JsonCanonical::serialize(value), expected);
        if (value.isDouble()) {
            QCOMPARE(JsonCanonical::formatNumber(value.toDouble()), expected);
        }
    }
};

QTEST_GUILESS_MAIN(TestJsonCanonical)
#include "tst_jsoncanonical.moc"
