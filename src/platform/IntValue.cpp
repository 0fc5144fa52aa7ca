#include "platform/IntValue.h"

#include <cmath>
#include <limits>

int saturatedInt(qint64 value)
{
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return int(value);
}

int saturatedInt(double value)
{
    if (std::isnan(value))
        return 0;
    if (value >= double(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    if (value <= double(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    return int(value);
}

qint64 longLongValue(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && text[i].isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == QLatin1Char('+') || text[i] == QLatin1Char('-')))
        negative = text[i++] == QLatin1Char('-');
    constexpr qint64 kMax = std::numeric_limits<qint64>::max();
    qint64 value = 0;
    for (; i < text.size() && text[i] >= QLatin1Char('0') && text[i] <= QLatin1Char('9'); ++i) {
        const int digit = text[i].unicode() - '0';
        if (value > (kMax - digit) / 10)
            return negative ? std::numeric_limits<qint64>::min() : kMax;
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

int intValue(QStringView text)
{
    return saturatedInt(longLongValue(text));
}

int intValue(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::UnknownType:
        return 0;
    case QMetaType::Bool:
        return value.toBool() ? 1 : 0;
    case QMetaType::QString:
        return intValue(QStringView(value.toString()));
    case QMetaType::QByteArray:
        return intValue(QStringView(QString::fromUtf8(value.toByteArray())));
    case QMetaType::Double:
    case QMetaType::Float:
        return saturatedInt(value.toDouble());
    default:
        break;
    }
    bool ok = false;
    const qint64 number = value.toLongLong(&ok);
    if (ok)
        return saturatedInt(number);
    const double real = value.toDouble(&ok);
    return ok ? saturatedInt(real) : 0;
}
