#pragma once

// Internal to the JSON library: the reader and writer classes that the value
// model names as friends. Not part of the public interface.

#include "json/JsonValue.h"

#include <QHash>

#include <array>

// Objects up to this size find keys by a linear search; larger ones keep a
// hash of their keys.
constexpr size_t kJsonIndexThreshold = 12;

inline bool isAsciiDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}

// An exponent at `p` ("e" or "E", an optional sign, digits) added to
// `*exponent`; returns the first character after it. Without digits after the
// "e" the number ends before it and `p` is returned. Huge exponents saturate,
// so that they fail the callers' range tests.
inline const char16_t *scanJsonExponent(const char16_t *p, const char16_t *end, qint64 *exponent)
{
    if (p == end || (*p != u'e' && *p != u'E'))
        return p;
    const char16_t *q = p + 1;
    bool negative = false;
    if (q < end && (*q == u'-' || *q == u'+'))
        negative = *q++ == u'-';
    if (q == end || !isAsciiDigit(*q))
        return p;
    qint64 value = 0;
    for (; q < end && isAsciiDigit(*q); ++q) {
        if (value < 1000000000)
            value = value * 10 + (*q - u'0');
    }
    *exponent += negative ? -value : value;
    return q;
}

class JsonReader
{
public:
    // Significant digits and decimal exponent kept for numbers read from text,
    // the same bounds as the platform decimal type of the original system.
    static constexpr int kMaxDigits = 38;
    static constexpr int kMinExponent = -128;
    static constexpr int kMaxExponent = 127;

    // Reads the longest decimal at `begin`: optional sign, digits, optional
    // "." and digits, optional exponent. On success `*stop` is the first
    // character after it. `limited` applies the bounds above (fails outside).
    static bool scanDecimal(const char16_t *begin, const char16_t *end, const char16_t **stop,
                            JsonDecimal &out, bool limited);

    explicit JsonReader(QStringView text);
    ~JsonReader();
    JsonReader(const JsonReader &) = delete;
    JsonReader &operator=(const JsonReader &) = delete;
    std::optional<JsonObject> readTopLevel();

private:
    bool skipWhiteSpace();
    bool matchToken(char16_t token);
    bool scanObject(JsonObject &out);
    bool scanArray(JsonArray &out);
    bool scanValue(JsonValue &out);
    bool scanString(QString &out, bool isKey);
    bool scanNumber(JsonValue &out);
    bool scanShortNumber(JsonValue &out);
    bool startsWith(const char *keyword, qsizetype length) const;
    bool enter();
    void leave() { --m_depth; }
    static QString sharedString(std::array<QString, 256> &cache, const char16_t *chars, qsizetype length);

    const char16_t *m_text;
    qsizetype m_length;
    qsizetype m_pos = 0;
    qsizetype m_contentEnd; // one past the last character that is not a blank
    int m_depth = 0;
    bool m_fault = false;   // ran past the end or too deep: the whole read fails
    std::array<QString, 256> m_keys; // recent keys, shared by every object that repeats them
    JsonDecimal m_number;            // reused so that its digit buffer is too
    std::u16string m_unescaped;      // likewise for strings with escapes
    struct Scratch
    {
        std::vector<JsonObject::Member> members;
        std::vector<JsonValue> elements;
        bool busy = false;
    };
    static Scratch &threadScratch();
    std::unique_ptr<Scratch> m_ownScratch; // only when the thread's is in use
    Scratch *m_scratch;
    std::vector<JsonObject::Member> &m_memberStack;
    std::vector<JsonValue> &m_elementStack;
};

class JsonWriter
{
public:
    QString write(const JsonObject &dictionary);

private:
    void writeObject(const JsonObject &object);
    void writeArray(const JsonArray &array);
    void writeValue(const JsonValue &value);
    void writeString(const QString &string);
    void writeNumber(bool negative, const char *digits, qsizetype count, qsizetype exponent);
    void writeAscii(const char *text, qsizetype length);
    void reserve(qsizetype more);

    QString m_out;
    char16_t *m_cursor = nullptr;
    char16_t *m_limit = nullptr;
};
