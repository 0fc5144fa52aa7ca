#include "json/JsonInternal.h"

#include <charconv>
#include <cmath>
#include <limits>

bool JsonReader::scanDecimal(const char16_t *begin, const char16_t *end, const char16_t **stop,
                             JsonDecimal &out, bool limited)
{
    const char16_t *p = begin;
    bool negative = false;
    if (p < end && (*p == u'-' || *p == u'+')) {
        negative = *p == u'-';
        ++p;
    }
    const char16_t *intStart = p;
    while (p < end && isAsciiDigit(*p))
        ++p;
    const char16_t *intEnd = p;
    const char16_t *fracStart = p;
    const char16_t *fracEnd = p;
    if (p < end && *p == u'.') {
        const char16_t *q = p + 1;
        while (q < end && isAsciiDigit(*q))
            ++q;
        if (intEnd > intStart || q > p + 1) {
            fracStart = p + 1;
            fracEnd = q;
            p = q;
        }
    }
    if (intEnd == intStart && fracEnd == fracStart)
        return false;

    // The exponent only counts when digits follow the "e"; otherwise the
    // number ends before it.
    qint64 exponent = 0;
    p = scanJsonExponent(p, end, &exponent);
    *stop = p;

    // Collect the significant digits across the integer and fraction parts
    // without building the whole digit string (the text may hold millions).
    const qint64 intCount = intEnd - intStart;
    const qint64 fracCount = fracEnd - fracStart;
    const qint64 total = intCount + fracCount;
    auto digitAt = [&](qint64 i) { return i < intCount ? intStart[i] : fracStart[i - intCount]; };
    qint64 first = 0;
    while (first < total && digitAt(first) == u'0')
        ++first;
    out.m_negative = false;
    out.m_digits.clear();
    out.m_exponent = 0;
    if (first == total)
        return true; // zero, "-0" included

    const qint64 significant = total - first;
    const qint64 maxKept = limited ? kMaxDigits : 800; // a double never needs more
    const qint64 kept = std::min(significant, maxKept);
    // Excess digits are cut off, as the original decimal type did.
    qint64 valueExponent = exponent - fracCount + (significant - kept);
    qint64 last = first + kept; // one past the last kept digit
    while (last > first && digitAt(last - 1) == u'0') {
        --last;
        ++valueExponent;
    }
    const qint64 digitCount = last - first;
    if (limited && (valueExponent < kMinExponent || valueExponent + digitCount > kMaxExponent + kMaxDigits))
        return false;
    if (!limited && (valueExponent < -2000 || valueExponent > 2000))
        return false;
    out.m_digits.resize(size_t(digitCount));
    for (qint64 i = 0; i < digitCount; ++i)
        out.m_digits[size_t(i)] = char(digitAt(first + i));
    out.m_negative = negative;
    out.m_exponent = int(valueExponent);
    return true;
}

JsonDecimal::JsonDecimal() = default;

std::optional<JsonDecimal> JsonDecimal::fromString(QStringView text)
{
    const char16_t *begin = text.utf16();
    const char16_t *end = begin + text.size();
    const char16_t *stop = nullptr;
    JsonDecimal result;
    if (!JsonReader::scanDecimal(begin, end, &stop, result, true) || stop != end)
        return std::nullopt;
    return result;
}

JsonDecimal JsonDecimal::fromInteger(qint64 value)
{
    JsonDecimal result;
    if (value == 0)
        return result;
    result.m_negative = value < 0;
    const quint64 magnitude = value < 0 ? quint64(0) - quint64(value) : quint64(value);
    char buffer[24];
    char *end = std::to_chars(buffer, buffer + sizeof buffer, magnitude).ptr;
    while (end[-1] == '0') {
        --end;
        ++result.m_exponent;
    }
    result.m_digits.assign(buffer, end);
    return result;
}

JsonDecimal JsonDecimal::fromDouble(double value)
{
    JsonDecimal result;
    if (!std::isfinite(value) || value == 0)
        return result; // no decimal stands for NaN or infinity: they become zero
    char buffer[64];
    const char *end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    char16_t wide[64];
    for (const char *c = buffer; c < end; ++c)
        wide[c - buffer] = char16_t(*c);
    const char16_t *stop = nullptr;
    if (!JsonReader::scanDecimal(wide, wide + (end - buffer), &stop, result, false))
        return JsonDecimal();
    return result;
}

QString JsonDecimal::toString() const
{
    if (m_digits.empty())
        return QStringLiteral("0");
    const int n = int(m_digits.size());
    std::string text;
    text.reserve(size_t(n + std::abs(m_exponent) + 3));
    if (m_negative)
        text += '-';
    if (m_exponent >= 0) {
        text += m_digits;
        text.append(size_t(m_exponent), '0');
    } else if (-m_exponent < n) {
        text.append(m_digits, 0, size_t(n + m_exponent));
        text += '.';
        text.append(m_digits, size_t(n + m_exponent), std::string::npos);
    } else {
        text += "0.";
        text.append(size_t(-m_exponent - n), '0');
        text += m_digits;
    }
    return QString::fromLatin1(text.data(), qsizetype(text.size()));
}

qint64 JsonDecimal::toLongLong() const
{
    const int n = int(m_digits.size());
    const int integerDigits = n + m_exponent; // digits before the point
    if (m_digits.empty() || integerDigits <= 0)
        return 0;
    const quint64 limit = m_negative ? quint64(std::numeric_limits<qint64>::max()) + 1
                                     : quint64(std::numeric_limits<qint64>::max());
    quint64 magnitude = 0;
    for (int i = 0; i < integerDigits; ++i) {
        const unsigned digit = i < n ? unsigned(m_digits[size_t(i)] - '0') : 0;
        if (magnitude > (limit - digit) / 10) {
            magnitude = limit;
            break;
        }
        magnitude = magnitude * 10 + digit;
    }
    return m_negative ? qint64(quint64(0) - magnitude) : qint64(magnitude);
}

int JsonDecimal::toInt() const
{
    const qint64 value = toLongLong();
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return int(value);
}

double JsonDecimal::toDouble() const
{
    if (m_digits.empty())
        return 0.0;
    std::string text = m_digits;
    text += 'e';
    text += std::to_string(m_exponent);
    double value = 0.0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range)
        value = m_exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
    return m_negative ? -value : value;
}

bool JsonDecimal::isZero() const
{
    return m_digits.empty();
}

bool JsonDecimal::operator==(const JsonDecimal &other) const
{
    return m_negative == other.m_negative && m_exponent == other.m_exponent && m_digits == other.m_digits;
}
