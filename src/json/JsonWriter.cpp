#include "json/JsonInternal.h"

#include <charconv>

namespace {

// What follows the backslash for the characters below U+0080 that are
// escaped; 0 means written as they are. A backslash deliberately becomes
// the newline escape: readers of these files have always seen it that way.
struct EscapeTable
{
    char16_t next[128] = {};
    constexpr EscapeTable()
    {
        next[u'"'] = u'"';
        next[u'\\'] = u'n';
        next[u'\n'] = u'n';
        next[0x08] = u'b';
        next[0x09] = u't';
        next[0x0C] = u'f';
        next[0x0D] = u'r';
    }
};
constexpr EscapeTable kEscapes;

constexpr char16_t kHex[] = u"0123456789abcdef";

} // namespace

QString jsonStringValue(const JsonObject &dictionary)
{
    return JsonWriter().write(dictionary);
}

QString JsonWriter::write(const JsonObject &dictionary)
{
    m_out = QString();
    m_cursor = m_limit = nullptr;
    reserve(256);
    writeObject(dictionary);
    m_out.truncate(m_cursor - reinterpret_cast<char16_t *>(m_out.data()));
    return std::move(m_out);
}

void JsonWriter::reserve(qsizetype more)
{
    if (m_limit - m_cursor >= more)
        return;
    char16_t *begin = reinterpret_cast<char16_t *>(m_out.data());
    const qsizetype used = m_cursor ? m_cursor - begin : 0;
    const qsizetype capacity = std::max(m_out.size() * 2, used + more + 256);
    m_out.resize(capacity);
    begin = reinterpret_cast<char16_t *>(m_out.data());
    m_cursor = begin + used;
    m_limit = begin + capacity;
}

void JsonWriter::writeAscii(const char *text, qsizetype length)
{
    reserve(length);
    for (qsizetype i = 0; i < length; ++i)
        m_cursor[i] = char16_t(text[i]);
    m_cursor += length;
}

void JsonWriter::writeObject(const JsonObject &object)
{
    writeAscii(" {", 2);
    bool first = true;
    for (const JsonObject::Member &member : object) {
        if (first) {
            writeAscii(" ", 1);
            first = false;
        } else {
            writeAscii(", ", 2);
        }
        writeString(member.first);
        writeAscii(" : ", 3);
        writeValue(member.second);
    }
    writeAscii("\n}", 2);
}

void JsonWriter::writeArray(const JsonArray &array)
{
    writeAscii("[", 1);
    bool first = true;
    for (const JsonValue &element : array) {
        if (!first)
            writeAscii(", ", 2);
        first = false;
        writeValue(element);
    }
    writeAscii("]", 1);
}

void JsonWriter::writeValue(const JsonValue &value)
{
    const JsonValue::Storage &v = value.m_value;
    switch (v.index()) {
    case 1:
        if (std::get<bool>(v))
            writeAscii("true", 4);
        else
            writeAscii("false", 5);
        break;
    case 2: {
        const auto &number = std::get<JsonValue::ShortNumber>(v);
        const quint64 magnitude = number.mantissa < 0 ? quint64(0) - quint64(number.mantissa) : quint64(number.mantissa);
        char digits[24];
        const char *end = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
        writeNumber(number.mantissa < 0, digits, end - digits, number.mantissa ? number.exponent : 0);
        break;
    }
    case 3: {
        const JsonDecimal &number = *std::get<3>(v);
        writeNumber(number.m_negative, number.m_digits.data(), qsizetype(number.m_digits.size()), number.m_exponent);
        break;
    }
    case 4:
        writeString(std::get<QString>(v));
        break;
    case 5:
        writeArray(*std::get<5>(v));
        break;
    case 6:
        writeObject(*std::get<6>(v));
        break;
    default:
        writeAscii("null", 4);
        break;
    }
}

void JsonWriter::writeString(const QString &string)
{
    const qsizetype length = string.size();
    reserve(6 * length + 2);
    const char16_t *in = reinterpret_cast<const char16_t *>(string.constData());
    const char16_t *end = in + length;
    char16_t *out = m_cursor;
    *out++ = u'"';
    while (in < end) {
        const char16_t c = *in++;
        if (c < 0x80) {
            const char16_t escape = kEscapes.next[c];
            if (!escape) {
                *out++ = c;
            } else {
                out[0] = u'\\';
                out[1] = escape;
                out += 2;
            }
        } else {
            // Every unit from U+0080 on, each surrogate by itself.
            out[0] = u'\\';
            out[1] = u'u';
            out[2] = kHex[c >> 12];
            out[3] = kHex[(c >> 8) & 0xF];
            out[4] = kHex[(c >> 4) & 0xF];
            out[5] = kHex[c & 0xF];
            out += 6;
        }
    }
    *out++ = u'"';
    m_cursor = out;
}

// Plain decimal text: no exponent, no "+", integers without a point.
void JsonWriter::writeNumber(bool negative, const char *digits, qsizetype n, qsizetype exponent)
{
    if (n == 0) {
        writeAscii("0", 1);
        return;
    }
    reserve(n + (exponent < 0 ? -exponent : exponent) + 3);
    char16_t *out = m_cursor;
    if (negative)
        *out++ = u'-';
    auto copyDigits = [&](qsizetype from, qsizetype to) {
        for (qsizetype i = from; i < to; ++i)
            *out++ = char16_t(digits[i]);
    };
    if (exponent >= 0) {
        copyDigits(0, n);
        for (qsizetype i = 0; i < exponent; ++i)
            *out++ = u'0';
    } else if (-exponent < n) {
        copyDigits(0, n + exponent);
        *out++ = u'.';
        copyDigits(n + exponent, n);
    } else {
        *out++ = u'0';
        *out++ = u'.';
        for (qsizetype i = 0; i < -exponent - n; ++i)
            *out++ = u'0';
        copyDigits(0, n);
    }
    m_cursor = out;
}
