// libFuzzer target for the JSON reader. Every input is read twice: as UTF-8
// bytes, the form files have, and as raw UTF-16 units, which reaches lone
// surrogates and every code unit. Whatever reads must write back to text
// that reads again and writes identically; nothing may crash or hang.
// One loss is by design: a backslash is written as the newline escape, so
// keys that differ only there become duplicates and merge when read again.
// Only then may the second round differ, and it must settle at once.

#include "json/JsonValue.h"

#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void fail(const char *what, QStringView text)
{
    std::fprintf(stderr, "%s\n%s\n", what, text.toString().toUtf8().constData());
    std::abort();
}

bool hasKeyWithBackslash(const JsonValue &value);

bool hasKeyWithBackslash(const JsonObject &object)
{
    for (const auto &[key, value] : object) {
        if (key.contains(u'\\') || hasKeyWithBackslash(value))
            return true;
    }
    return false;
}

bool hasKeyWithBackslash(const JsonValue &value)
{
    if (value.isObject())
        return hasKeyWithBackslash(value.toObject());
    if (value.isArray()) {
        for (const JsonValue &element : value.toArray()) {
            if (hasKeyWithBackslash(element))
                return true;
        }
    }
    return false;
}

QString writtenAgain(const QString &written)
{
    const std::optional<JsonObject> again = dictionaryWithJSONString(written);
    if (!again)
        fail("written text does not read back", written);
    return jsonStringValue(*again);
}

void checkReader(QStringView text)
{
    const std::optional<JsonObject> object = dictionaryWithJSONString(text);
    if (!object)
        return;
    const QString written = jsonStringValue(*object);
    const QString second = writtenAgain(written);
    if (second == written)
        return;
    if (!hasKeyWithBackslash(*object))
        fail("written text changes on a second round", written);
    if (writtenAgain(second) != second)
        fail("written text keeps changing after merged keys", second);
}

void checkDecimal(QStringView text)
{
    const std::optional<JsonDecimal> number = JsonDecimal::fromString(text);
    if (!number)
        return;
    const QString plain = number->toString();
    const std::optional<JsonDecimal> again = JsonDecimal::fromString(plain);
    if (!again || *again != *number)
        fail("decimal does not survive its own text", plain);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString utf8 = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    checkReader(utf8);
    if (size <= 64)
        checkDecimal(utf8);

    std::u16string units(size / 2, u'\0'); // copied: the input need not be aligned
    std::memcpy(units.data(), data, units.size() * 2);
    checkReader(QStringView(units.data(), qsizetype(units.size())));
    return 0;
}
