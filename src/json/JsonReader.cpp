#include "json/JsonInternal.h"

#include <QChar>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// The reader is deliberately lenient: optional and trailing commas, members
// dropped when their value is missing and "}" follows, keywords matched as
// prefixes, unknown escapes kept verbatim. Wherever the scanner it mimics
// would have run past the end of the text, the whole read fails instead.

namespace {

// Blanks and line ends: the tab to carriage-return controls, NEL and every
// Unicode separator (space, line and paragraph).
inline bool isBlank(char16_t c)
{
    if (Q_LIKELY(c > 0x20 && c < 0x85))
        return false;
    if (c <= 0x20)
        return c == 0x20 || (c >= 0x09 && c <= 0x0D);
    return QChar::isSpace(char32_t(c));
}

// Keys of one object are mostly shared strings: equal data means equal keys.
inline bool sameChars(const char16_t *x, const char16_t *y, qsizetype length)
{
    // Keys are short: a plain loop beats a call to memcmp.
    for (qsizetype i = 0; i < length; ++i) {
        if (x[i] != y[i])
            return false;
    }
    return true;
}

inline bool sameKey(const QString &a, const QString &b)
{
    if (a.size() != b.size())
        return false;
    const char16_t *x = reinterpret_cast<const char16_t *>(a.constData());
    const char16_t *y = reinterpret_cast<const char16_t *>(b.constData());
    return x == y || sameChars(x, y, a.size());
}

inline int hexValue(char16_t c)
{
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    return -1;
}

// The value of the leading hexadecimal digits of exactly four characters, after
// optional blanks and an optional "0x"; U+0000 when there is no digit at all.
char16_t hexUnit(const char16_t *chars)
{
    const char16_t *p = chars;
    const char16_t *end = chars + 4;
    while (p < end && isBlank(*p))
        ++p;
    if (end - p >= 3 && p[0] == u'0' && (p[1] == u'x' || p[1] == u'X') && hexValue(p[2]) >= 0)
        p += 2;
    unsigned value = 0;
    for (; p < end && hexValue(*p) >= 0; ++p)
        value = value * 16 + unsigned(hexValue(*p));
    return char16_t(value);
}

constexpr qsizetype kMaxSharedKeyLength = 64;

} // namespace

std::optional<JsonObject> dictionaryWithJSONString(QStringView text)
{
    return JsonReader(text).readTopLevel();
}

// The member and element stacks outlive a read, so that a document read
// again and again (the conversion queue is polled every second) does not
// grow them anew each time. Past a bound they are given back.
constexpr size_t kKeptScratchEntries = 16384;

JsonReader::Scratch &JsonReader::threadScratch()
{
    thread_local Scratch scratch;
    return scratch;
}

JsonReader::JsonReader(QStringView text)
    : m_text(text.utf16()),
      m_length(text.size()),
      m_contentEnd(text.size()),
      m_ownScratch(threadScratch().busy ? std::make_unique<Scratch>() : nullptr),
      m_scratch(m_ownScratch ? m_ownScratch.get() : &threadScratch()),
      m_memberStack(m_scratch->members),
      m_elementStack(m_scratch->elements)
{
    m_scratch->busy = true;
    while (m_contentEnd > 0 && isBlank(m_text[m_contentEnd - 1]))
        --m_contentEnd;
}

JsonReader::~JsonReader()
{
    m_memberStack.clear();
    m_elementStack.clear();
    if (m_memberStack.capacity() > kKeptScratchEntries)
        std::vector<JsonObject::Member>().swap(m_memberStack);
    if (m_elementStack.capacity() > kKeptScratchEntries)
        std::vector<JsonValue>().swap(m_elementStack);
    m_scratch->busy = false;
}

std::optional<JsonObject> JsonReader::readTopLevel()
{
    JsonObject object;
    if (!enter())
        return std::nullopt;
    const bool ok = scanObject(object);
    leave();
    if (!ok || m_fault)
        return std::nullopt;
    return object;
}

bool JsonReader::enter()
{
    if (++m_depth > kJsonMaxDepth) {
        m_fault = true;
        return false;
    }
    return true;
}

// Skips blanks at the cursor. Reaching the end of the text is a fault: the
// caller is always about to look at the next character.
Q_ALWAYS_INLINE bool JsonReader::skipWhiteSpace()
{
    qsizetype p = m_pos;
    if (Q_LIKELY(p < m_length && !isBlank(m_text[p])))
        return true;
    while (p < m_length && isBlank(m_text[p]))
        ++p;
    m_pos = p;
    if (Q_UNLIKELY(p >= m_length)) {
        m_fault = true;
        return false;
    }
    return true;
}

// A one-character token after optional blanks; on a mismatch the cursor
// stays where it was, before the blanks.
Q_ALWAYS_INLINE bool JsonReader::matchToken(char16_t token)
{
    qsizetype p = m_pos;
    if (Q_LIKELY(p < m_length && m_text[p] == token)) {
        m_pos = p + 1;
        return true;
    }
    while (p < m_length && isBlank(m_text[p]))
        ++p;
    if (p < m_length && m_text[p] == token) {
        m_pos = p + 1;
        return true;
    }
    return false;
}

bool JsonReader::startsWith(const char *keyword, qsizetype length) const
{
    if (m_length - m_pos < length)
        return false;
    for (qsizetype i = 0; i < length; ++i) {
        if (m_text[m_pos + i] != char16_t(keyword[i]))
            return false;
    }
    return true;
}

// Members and elements collect on stacks shared by every level of nesting,
// so that each finished object or array is allocated once at its exact size.
bool JsonReader::scanObject(JsonObject &out)
{
    if (!matchToken(u'{'))
        return false;
    if (!skipWhiteSpace())
        return false;
    const size_t base = m_memberStack.size();
    auto discard = [&] {
        m_memberStack.erase(m_memberStack.begin() + qsizetype(base), m_memberStack.end());
        return false;
    };
    // Large objects find duplicate keys through a hash, built once needed.
    std::optional<QHash<QStringView, size_t>> positions;
    for (;;) {
        QString key;
        if (!scanString(key, true)) {
            if (m_fault)
                return discard();
            break;
        }
        if (!matchToken(u':'))
            break;
        JsonValue value;
        if (!scanValue(value)) {
            if (m_fault)
                return discard();
            break;
        }
        const size_t count = m_memberStack.size() - base;
        size_t existing = count;
        if (positions) {
            existing = positions->value(QStringView(key), count);
        } else {
            for (size_t i = base; i < m_memberStack.size(); ++i) {
                if (sameKey(m_memberStack[i].first, key)) {
                    existing = i - base;
                    break;
                }
            }
        }
        if (existing < count) {
            m_memberStack[base + existing].second = std::move(value);
        } else {
            m_memberStack.emplace_back(std::move(key), std::move(value));
            if (positions) {
                positions->insert(QStringView(m_memberStack.back().first), count);
            } else if (count + 1 >= 16) {
                positions.emplace();
                for (size_t i = base; i < m_memberStack.size(); ++i)
                    positions->insert(QStringView(m_memberStack[i].first), i - base);
            }
        }
        if (!skipWhiteSpace())
            return discard();
        if (m_text[m_pos] == u',')
            ++m_pos;
    }
    if (!matchToken(u'}'))
        return discard();
    out.m_members.assign(std::make_move_iterator(m_memberStack.begin() + qsizetype(base)),
                         std::make_move_iterator(m_memberStack.end()));
    discard();
    if (out.m_members.size() > kJsonIndexThreshold)
        out.buildIndex();
    return true;
}

bool JsonReader::scanArray(JsonArray &out)
{
    matchToken(u'[');
    const size_t base = m_elementStack.size();
    auto discard = [&] {
        m_elementStack.erase(m_elementStack.begin() + qsizetype(base), m_elementStack.end());
        return false;
    };
    for (;;) {
        JsonValue value;
        if (!scanValue(value))
            break;
        m_elementStack.push_back(std::move(value));
        if (!skipWhiteSpace())
            return discard();
        if (m_text[m_pos] == u',')
            ++m_pos;
    }
    if (m_fault || !matchToken(u']'))
        return discard();
    out.assign(std::make_move_iterator(m_elementStack.begin() + qsizetype(base)),
               std::make_move_iterator(m_elementStack.end()));
    discard();
    return true;
}

bool JsonReader::scanValue(JsonValue &out)
{
    if (!skipWhiteSpace())
        return false;
    const char16_t c = m_text[m_pos];
    switch (c) {
    // Strings, objects and arrays are read straight into their final place;
    // on failure the caller drops `out` anyway.
    case u'"':
        return scanString(out.m_value.emplace<QString>(), false);
    case u'{': {
        if (!enter())
            return false;
        auto object = std::make_shared<JsonObject>();
        const bool ok = scanObject(*object);
        leave();
        if (!ok)
            return false;
        out.m_value.emplace<std::shared_ptr<const JsonObject>>(std::move(object));
        return true;
    }
    case u'[': {
        if (!enter())
            return false;
        auto array = std::make_shared<JsonArray>();
        const bool ok = scanArray(*array);
        leave();
        if (!ok)
            return false;
        out.m_value.emplace<std::shared_ptr<const JsonArray>>(std::move(array));
        return true;
    }
    default:
        break;
    }
    // The keywords begin with different letters, so the letter picks the test.
    if (c == u't' && startsWith("true", 4)) {
        out.m_value.emplace<bool>(true);
        m_pos += 4;
        return true;
    }
    if (c == u'f' && startsWith("false", 5)) {
        out.m_value.emplace<bool>(false);
        m_pos += 5;
        return true;
    }
    if (c == u'n' && startsWith("null", 4)) {
        out.m_value.emplace<std::monostate>();
        m_pos += 4;
        return true;
    }
    // Any decimal digit starts a number, but only ASCII digits read as one.
    if (c == u'-' || (c >= u'0' && c <= u'9') || (c >= 0x80 && QChar::isDigit(char32_t(c))))
        return scanNumber(out);
    return false;
}

bool JsonReader::scanNumber(JsonValue &out)
{
    if (scanShortNumber(out))
        return true;
    if (m_fault)
        return false;
    const char16_t *stop = nullptr;
    if (!scanDecimal(m_text + m_pos, m_text + m_length, &stop, m_number, true))
        return false;
    m_pos = stop - m_text;
    out.m_value = JsonValue::numberStorage(m_number);
    return true;
}

// The common case of scanDecimal, straight into a short number: at most 18
// significant digits. Answers no, with the cursor unchanged, whenever the
// general scan has to decide (longer numbers, no digits, out of range).
bool JsonReader::scanShortNumber(JsonValue &out)
{
    const char16_t *p = m_text + m_pos;
    const char16_t *end = m_text + m_length;
    bool negative = false;
    if (p < end && (*p == u'-' || *p == u'+')) {
        negative = *p == u'-';
        ++p;
    }
    quint64 mantissa = 0;
    int digits = 0;          // significant digits taken into the mantissa
    qint64 exponent = 0;
    bool any = false;
    auto take = [&](char16_t c) {
        if (mantissa == 0 && c == u'0')
            return true; // a leading zero
        if (++digits > 18)
            return false;
        mantissa = mantissa * 10 + unsigned(c - u'0');
        return true;
    };
    for (; p < end && isAsciiDigit(*p); ++p) {
        if (!take(*p))
            return false;
        any = true;
    }
    if (p < end && *p == u'.' && (any || (p + 1 < end && isAsciiDigit(p[1])))) {
        for (++p; p < end && isAsciiDigit(*p); ++p) {
            if (!take(*p))
                return false;
            --exponent;
            any = true;
        }
    }
    if (!any)
        return false;
    p = scanJsonExponent(p, end, &exponent);
    if (mantissa == 0) {
        out.m_value = JsonValue::ShortNumber{0, 0};
    } else {
        while (mantissa % 10 == 0) {
            mantissa /= 10;
            ++exponent;
            --digits;
        }
        if (exponent < kMinExponent || exponent + digits > kMaxExponent + kMaxDigits)
            return false;
        out.m_value = JsonValue::ShortNumber{negative ? -qint64(mantissa) : qint64(mantissa), int(exponent)};
    }
    m_pos = p - m_text;
    return true;
}

// Keys repeat across the objects of a document: a small direct-mapped cache
// lets the repeats share one string instead of allocating each time. (Values
// gain nothing from it: most are unique, and a miss costs more than it saves.)
namespace {
inline quint32 quickHash(const char16_t *chars, qsizetype length)
{
    // The length and three characters spread the strings of a document well
    // enough; a collision only costs an allocation.
    quint32 hash = quint32(length);
    if (length > 0)
        hash = hash * 31 + chars[0];
    if (length > 1)
        hash = (hash * 31 + chars[length - 1]) * 31 + chars[length / 2];
    return hash;
}
} // namespace

QString JsonReader::sharedString(std::array<QString, 256> &cache, const char16_t *chars, qsizetype length)
{
    const quint32 hash = quickHash(chars, length);
    QString &slot = cache[(hash ^ (hash >> 8)) & (cache.size() - 1)];
    if (slot.size() == length && sameChars(chars, reinterpret_cast<const char16_t *>(slot.constData()), length))
        return slot;
    slot = QString(reinterpret_cast<const QChar *>(chars), length);
    return slot;
}

// The first quote or backslash in [from, end), or end.
static qsizetype findQuoteOrBackslash(const char16_t *text, qsizetype from, qsizetype end)
{
#ifdef __SSE2__
    const __m128i quote = _mm_set1_epi16(u'"');
    const __m128i backslash = _mm_set1_epi16(u'\\');
    while (from + 8 <= end) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + from));
        const int mask = _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi16(chunk, quote), _mm_cmpeq_epi16(chunk, backslash)));
        if (mask)
            return from + __builtin_ctz(unsigned(mask)) / 2;
        from += 8;
    }
#endif
    while (from < end && text[from] != u'"' && text[from] != u'\\')
        ++from;
    return from;
}

bool JsonReader::scanString(QString &out, bool isKey)
{
    if (!matchToken(u'"'))
        return false;
    const char16_t *text = m_text;
    qsizetype pos = m_pos;
    // The loop ends where only blanks remain, not only at the very end.
    const qsizetype end = m_contentEnd;
    auto deliver = [&](const char16_t *chars, qsizetype length) {
        if (isKey && length <= kMaxSharedKeyLength)
            out = sharedString(m_keys, chars, length);
        else
            out = QString(reinterpret_cast<const QChar *>(chars), length);
    };

    // Most strings have no escape: take them in one piece.
    qsizetype scan = findQuoteOrBackslash(text, pos, end);
    if (scan < end && text[scan] == u'"') {
        deliver(text + pos, scan - pos);
        m_pos = scan + 1;
        return true;
    }

    // Otherwise decode into a buffer that is reused from string to string.
    std::u16string &buffer = m_unescaped;
    buffer.assign(text + pos, text + scan);
    pos = scan;
    while (pos < end) {
        const char16_t c = text[pos];
        if (c == u'"')
            break;
        if (c != u'\\') {
            scan = findQuoteOrBackslash(text, pos + 1, end);
            buffer.append(text + pos, text + scan);
            pos = scan;
            continue;
        }
        if (pos + 1 >= m_length) {
            m_fault = true;
            return false;
        }
        const char16_t next = text[pos + 1];
        switch (next) {
        case u'"': buffer += u'"'; break;
        case u'\\': buffer += u'\\'; break;
        case u'b': buffer += char16_t(0x08); break;
        case u'f': buffer += char16_t(0x0C); break;
        case u'n': buffer += char16_t(0x0A); break;
        case u'r': buffer += char16_t(0x0D); break;
        case u't': buffer += char16_t(0x09); break;
        case u'u':
            if (m_length - (pos + 2) < 4) {
                m_fault = true;
                return false;
            }
            // Each escape is one UTF-16 unit, so an escaped surrogate pair joins.
            buffer += hexUnit(text + pos + 2);
            pos += 6;
            continue;
        default:
            // Unknown escapes, "\/" among them, keep both characters.
            buffer += u'\\';
            buffer += next;
            break;
        }
        pos += 2;
    }
    m_pos = pos;
    if (pos >= end)
        return false;
    m_pos = pos + 1; // the closing quote
    deliver(buffer.data(), qsizetype(buffer.size()));
    return true;
}
