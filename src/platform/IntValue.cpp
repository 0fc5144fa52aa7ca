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

int intValue(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && text[i].isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == QLatin1Char('+') || text[i] == QLatin1Char('-')))
        negative = text[i++] == QLatin1Char('-');
    qint64 value = 0;
    for (; i < text.size() && text[i] >= QLatin1Char('0') && text[i] <= QLatin1Char('9'); ++i) {
        value = value * 10 + (text[i].unicode() - '0');
        if (value > qint64(std::numeric_limits<int>::max()) + 1)
            break; // saturated below; more digits change nothing
    }
    return saturatedInt(negative ? -value : value);
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
