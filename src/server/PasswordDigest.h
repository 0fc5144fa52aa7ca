#pragma once

#include <QString>

// The salted digest stored in place of the server password.
class PasswordDigest
{
public:
    // 40 upper-case hexadecimal digits of the SHA-1 of "Q#48" + password +
    // "&5m" in UTF-8, cut at the first zero byte. An empty password is
    // hashed as it is, without the salt.
    static QString getSHA1(const QString &password);
};
