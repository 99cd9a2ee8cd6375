#include "jsoncanonical.h"

#include "jsoncanonical_p.h"

#include <QJsonArray>
#include <QVarLengthArray>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace vn::crypto {

namespace {

// Longest number text: "-0.00000" and 17 significant digits, or "-d.dddddddddddddddde-308".
constexpr int MaximumNumberLength = 32;

// Writes @p value as ECMAScript's Number.prototype.toString does and returns the length, or -1
// for NaN and the infinities.
int formatNumberTo(double value, char *out)
{
    if (!std::isfinite(value)) {
        return -1;
    }
    if (value == 0) { // also negative zero
        out[0] = '0';
        return 1;
    }
    char *p = out;
    if (value < 0) {
        *p++ = '-';
        value = -value;
    }

    // Whole numbers below 2^53 are exact, and ECMAScript writes them as plain digits: the integer
    // conversion is cheaper than the shortest round-trip search.
    if (value < 9007199254740992.0) {
        const auto whole = static_cast<long long>(value);
        if (static_cast<double>(whole) == value) {
            return int(std::to_chars(p, out + MaximumNumberLength, whole).ptr - out);
        }
    }

    // The shortest digits that round-trip, in the form "d[.ddd]e[+-]x". They have no trailing
    // zeros, and among equally short candidates the closest is chosen, as ECMAScript requires.
    char scientific[MaximumNumberLength];
    const auto end =
        std::to_chars(scientific, scientific + sizeof scientific, value, std::chars_format::scientific).ptr;
    char digits[20];
    int digitCount = 0;
    const char *c = scientific;
    digits[digitCount++] = *c++;
    if (*c == '.') {
        for (++c; *c != 'e'; ++c) {
            digits[digitCount++] = *c;
        }
    }
    ++c; // 'e'
    const bool negativeExponent = *c++ == '-';
    int exponent = 0;
    for (; c < end; ++c) {
        exponent = exponent * 10 + (*c - '0');
    }
    if (negativeExponent) {
        exponent = -exponent;
    }

    // value = 0.digits * 10^n, in the terms of ECMAScript's Number::toString.
    const int n = exponent + 1;
    if (digitCount <= n && n <= 21) {
        std::memcpy(p, digits, size_t(digitCount));
        p += digitCount;
        std::memset(p, '0', size_t(n - digitCount));
        p += n - digitCount;
    } else if (0 < n && n <= 21) {
        std::memcpy(p, digits, size_t(n));
        p += n;
        *p++ = '.';
        std::memcpy(p, digits + n, size_t(digitCount - n));
        p += digitCount - n;
    } else if (-6 < n && n <= 0) {
        *p++ = '0';
        *p++ = '.';
        std::memset(p, '0', size_t(-n));
        p += -n;
        std::memcpy(p, digits, size_t(digitCount));
        p += digitCount;
    } else {
        *p++ = digits[0];
        if (digitCount > 1) {
            *p++ = '.';
            std::memcpy(p, digits + 1, size_t(digitCount - 1));
            p += digitCount - 1;
        }
        *p++ = 'e';
        *p++ = n - 1 < 0 ? '-' : '+';
        p = std::to_chars(p, out + MaximumNumberLength, n - 1 < 0 ? 1 - n : n - 1).ptr;
    }
    return int(p - out);
}

// Member names are ordered by their UTF-16 code units, whatever order QJsonObject keeps.
bool codeUnitLess(const QString &left, const QString &right)
{
    const auto *a = reinterpret_cast<const char16_t *>(left.constData());
    const auto *b = reinterpret_cast<const char16_t *>(right.constData());
    return std::lexicographical_compare(a, a + left.size(), b, b + right.size());
}

/// Appends the canonical form to one growing buffer. Once a value turns out to have no canonical
/// form (NaN, infinity, a lone surrogate, an undefined value) the writer stops and the result is
/// empty.
class CanonicalWriter
{
public:
    QByteArray take()
    {
        if (m_failed) {
            return {};
        }
        m_buffer.resize(m_size);
        // Strings reserve room for their worst case; give a large surplus back.
        if (m_capacity - m_size > 4096 && m_capacity > 2 * m_size) {
            m_buffer.squeeze();
        }
        return std::move(m_buffer);
    }

    void writeValue(const QJsonValue &value)
    {
        switch (value.type()) {
        case QJsonValue::Null:
            writeLiteral("null", 4);
            break;
        case QJsonValue::Bool:
            if (value.toBool()) {
                writeLiteral("true", 4);
            } else {
                writeLiteral("false", 5);
            }
            break;
        case QJsonValue::Double:
            // Integers that Qt keeps as qint64 convert to the double an ECMAScript parser reads.
            writeNumber(value.toDouble());
            break;
        case QJsonValue::String:
            writeString(value.toString());
            break;
        case QJsonValue::Array:
            writeArray(value.toArray());
            break;
        case QJsonValue::Object:
            writeObject(value.toObject(), QLatin1String());
            break;
        case QJsonValue::Undefined:
            fail();
            break;
        }
    }

    void writeObject(const QJsonObject &object, QLatin1String skippedKey)
    {
        if (!writeLiteral("{", 1)) {
            return;
        }
        // QJsonObject usually iterates in code-unit order already: write while that holds, and
        // fall back to sorting only when a member turns out of order.
        const int membersStart = m_size;
        QString previous;
        bool first = true;
        for (auto it = object.constBegin(), end = object.constEnd(); it != end; ++it) {
            QString key = it.key();
            if (skippedKey.size() > 0 && key == skippedKey) {
                continue;
            }
            if (!first) {
                if (!codeUnitLess(previous, key)) {
                    m_size = membersStart;
                    writeSortedMembers(object, skippedKey);
                    writeLiteral("}", 1);
                    return;
                }
                writeLiteral(",", 1);
            }
            writeMember(key, it.value());
            previous = std::move(key);
            first = false;
        }
        writeLiteral("}", 1);
    }

private:
    struct Member
    {
        QString key;
        int index;
    };

    void writeSortedMembers(const QJsonObject &object, QLatin1String skippedKey)
    {
        QVarLengthArray<Member, 32> members;
        members.reserve(object.size());
        int index = 0;
        for (auto it = object.constBegin(), end = object.constEnd(); it != end; ++it, ++index) {
            QString key = it.key();
            if (skippedKey.size() > 0 && key == skippedKey) {
                continue;
            }
            members.append(Member{std::move(key), index});
        }
        std::sort(members.begin(), members.end(),
                  [](const Member &left, const Member &right) { return codeUnitLess(left.key, right.key); });
        const auto begin = object.constBegin();
        for (const Member &member : members) {
            if (&member != members.begin()) {
                // Qt's parser can leave two members of one name (one written escaped, one not):
                // such an object has no canonical form.
                if (!codeUnitLess((&member - 1)->key, member.key)) {
                    fail();
                    return;
                }
                writeLiteral(",", 1);
            }
            writeMember(member.key, (begin + member.index).value());
        }
    }

    void writeMember(const QString &key, const QJsonValue &value)
    {
        writeString(key);
        writeLiteral(":", 1);
        writeValue(value);
    }

    void writeArray(const QJsonArray &array)
    {
        if (!writeLiteral("[", 1)) {
            return;
        }
        for (auto it = array.constBegin(), end = array.constEnd(); it != end; ++it) {
            if (it != array.constBegin()) {
                writeLiteral(",", 1);
            }
            writeValue(*it);
        }
        writeLiteral("]", 1);
    }

    void writeNumber(double value)
    {
        char *out = reserve(MaximumNumberLength);
        if (!out) {
            return;
        }
        const int length = formatNumberTo(value, out);
        if (length < 0) {
            fail();
        } else {
            m_size += length;
        }
    }

    void writeString(const QString &string)
    {
        static constexpr char hexDigits[] = "0123456789abcdef";
        const auto *in = reinterpret_cast<const char16_t *>(string.constData());
        const int length = string.size();
        // A code unit takes at most six bytes ("\u001f"); the quotes two more.
        char *out = reserve(6 * qint64(length) + 2);
        if (!out) {
            return;
        }
        *out++ = '"';
        for (int i = 0; i < length; ++i) {
            const char16_t c = in[i];
            if (c < 0x80) {
                if (c >= 0x20 && c != '"' && c != '\\') {
                    *out++ = char(c);
                    continue;
                }
                *out++ = '\\';
                switch (c) {
                case '"':
                    *out++ = '"';
                    break;
                case '\\':
                    *out++ = '\\';
                    break;
                case '\b':
                    *out++ = 'b';
                    break;
                case '\t':
                    *out++ = 't';
                    break;
                case '\n':
                    *out++ = 'n';
                    break;
                case '\f':
                    *out++ = 'f';
                    break;
                case '\r':
                    *out++ = 'r';
                    break;
                default:
                    *out++ = 'u';
                    *out++ = '0';
                    *out++ = '0';
                    *out++ = hexDigits[c >> 4];
                    *out++ = hexDigits[c & 0xf];
                    break;
                }
            } else if (c < 0x800) {
                *out++ = char(0xc0 | (c >> 6));
                *out++ = char(0x80 | (c & 0x3f));
            } else if (c < 0xd800 || c > 0xdfff) {
                *out++ = char(0xe0 | (c >> 12));
                *out++ = char(0x80 | ((c >> 6) & 0x3f));
                *out++ = char(0x80 | (c & 0x3f));
            } else if (c < 0xdc00 && i + 1 < length && in[i + 1] >= 0xdc00 && in[i + 1] <= 0xdfff) {
                const char32_t code =
                    0x10000 + ((char32_t(c) - 0xd800) << 10) + (char32_t(in[i + 1]) - 0xdc00);
                ++i;
                *out++ = char(0xf0 | (code >> 18));
                *out++ = char(0x80 | ((code >> 12) & 0x3f));
                *out++ = char(0x80 | ((code >> 6) & 0x3f));
                *out++ = char(0x80 | (code & 0x3f));
            } else {
                // A lone surrogate is not Unicode text; no canonical form exists.
                fail();
                return;
            }
        }
        *out++ = '"';
        m_size = int(out - m_data);
    }

    bool writeLiteral(const char *text, int length)
    {
        char *out = reserve(length);
        if (!out) {
            return false;
        }
        std::memcpy(out, text, size_t(length));
        m_size += length;
        return true;
    }

    /// Room for @p extra more bytes at the end, or null once the writer has failed.
    char *reserve(qint64 extra)
    {
        if (m_failed) {
            return nullptr;
        }
        const qint64 needed = qint64(m_size) + extra;
        if (needed > m_capacity) {
            constexpr qint64 limit = std::numeric_limits<int>::max() / 2;
            if (needed > limit) {
                fail();
                return nullptr;
            }
            m_capacity = int(std::min(limit, std::max({needed, qint64(m_capacity) * 2, qint64(256)})));
            m_buffer.resize(m_capacity);
            m_data = m_buffer.data();
        }
        return m_data + m_size;
    }

    void fail()
    {
        m_failed = true;
        m_buffer.clear();
        m_data = nullptr;
        m_size = 0;
        m_capacity = 0;
    }

    QByteArray m_buffer;
    char *m_data = nullptr;
    int m_size = 0;
    int m_capacity = 0;
    bool m_failed = false;
};

} // namespace

QByteArray canonicalObjectWithout(const QJsonObject &object, QLatin1String skippedKey)
{
    CanonicalWriter writer;
    writer.writeObject(object, skippedKey);
    return writer.take();
}

QByteArray JsonCanonical::serialize(const QJsonValue &value)
{
    CanonicalWriter writer;
    writer.writeValue(value);
    return writer.take();
}

QByteArray JsonCanonical::formatNumber(double number)
{
    char text[MaximumNumberLength];
    const int length = formatNumberTo(number, text);
    return length < 0 ? QByteArray() : QByteArray(text, length);
}

} // namespace vn::crypto
