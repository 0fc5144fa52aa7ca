#pragma once

#include <QStringView>
#include <QVariant>

// Integers read the way the original platform's `intValue` reads them: text by
// its leading blanks, sign and digits (no digits is 0), numbers towards zero,
// booleans as 1 and 0; anything out of range saturates at the int limits.
int intValue(const QVariant &value);
int intValue(QStringView text);
// The same reading of text into 64 bits, saturating at their limits.
qint64 longLongValue(QStringView text);
int saturatedInt(qint64 value);
int saturatedInt(double value);
