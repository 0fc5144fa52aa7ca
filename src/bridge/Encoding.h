#pragma once

#include <QHash>
#include <QString>

// One character set offered for subtitles. Two encodings are the same when
// their charsets are the same; the display name takes no part in equality.
class Encoding
{
public:
    Encoding() = default;
    Encoding(const QString &name, const QString &charset) : m_name(name), m_charset(charset) {}

    QString name() const { return m_name; }
    QString charset() const { return m_charset; }
    // What a list of encodings shows.
    QString description() const { return m_name; }

    bool operator==(const Encoding &other) const { return m_charset == other.m_charset; }
    bool operator!=(const Encoding &other) const { return !(*this == other); }

private:
    QString m_name;
    QString m_charset;
};

inline size_t qHash(const Encoding &encoding, size_t seed = 0) noexcept
{
    return qHash(encoding.charset(), seed);
}
