#include "server/PasswordDigest.h"

#include <QCryptographicHash>

QString PasswordDigest::getSHA1(const QString &password)
{
    const QString salted = password.isEmpty()
        ? QString()
        : QStringLiteral("Q#48") + password + QStringLiteral("&5m");
    QByteArray bytes = salted.toUtf8();
    // The digest has always been taken over a C string: what follows a NUL
    // character never counted.
    const qsizetype zero = bytes.indexOf('\0');
    if (zero >= 0)
        bytes.truncate(zero);
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex().toUpper());
}
