#include "json/JsonInternal.h"

namespace {

// Objects up to this size are searched linearly; larger ones keep a hash of
// their keys. The views point into the member keys, whose character data is
// shared and never modified, so they stay valid for every copy of the object.
constexpr size_t kIndexThreshold = kJsonIndexThreshold;

struct KeyIndex
{
    QHash<QStringView, int> positions;
};

const JsonArray &emptyArray()
{
    static const JsonArray empty;
    return empty;
}

const JsonObject &emptyObject()
{
    static const JsonObject empty;
    return empty;
}

} // namespace

// ---------------------------------------------------------------- JsonObject

JsonObject::JsonObject() = default;

JsonObject::JsonObject(std::initializer_list<Member> members)
{
    m_members.reserve(members.size());
    for (const Member &member : members)
        insert(member.first, member.second);
}

void JsonObject::insert(const QString &key, JsonValue value)
{
    auto *index = static_cast<KeyIndex *>(m_index.get());
    if (index) {
        const auto it = index->positions.constFind(QStringView(key));
        if (it != index->positions.constEnd()) {
            m_members[size_t(it.value())].second = std::move(value);
            return;
        }
        if (m_index.use_count() > 1) { // shared with a copy: detach first
            m_index = std::make_shared<KeyIndex>(*index);
            index = static_cast<KeyIndex *>(m_index.get());
        }
        m_members.emplace_back(key, std::move(value));
        const Member &added = m_members.back();
        index->positions.insert(QStringView(added.first), int(m_members.size() - 1));
        return;
    }
    for (Member &member : m_members) {
        if (member.first == key) {
            member.second = std::move(value);
            return;
        }
    }
    m_members.emplace_back(key, std::move(value));
    if (m_members.size() > kIndexThreshold)
        buildIndex();
}

// Indexes the members of a large object. Keys must be unique already.
void JsonObject::buildIndex()
{
    if (m_members.size() <= kIndexThreshold) {
        m_index.reset();
        return;
    }
    auto built = std::make_shared<KeyIndex>();
    built->positions.reserve(qsizetype(m_members.size()));
    for (size_t i = 0; i < m_members.size(); ++i)
        built->positions.insert(QStringView(m_members[i].first), int(i));
    m_index = std::move(built);
}

const JsonValue *JsonObject::find(QStringView key) const
{
    if (const auto *index = static_cast<const KeyIndex *>(m_index.get())) {
        const auto it = index->positions.constFind(key);
        return it == index->positions.constEnd() ? nullptr : &m_members[size_t(it.value())].second;
    }
    for (const Member &member : m_members) {
        if (QStringView(member.first) == key)
            return &member.second;
    }
    return nullptr;
}

bool JsonObject::operator==(const JsonObject &other) const
{
    if (m_members.size() != other.m_members.size())
        return false;
    // Keys are unique, so equal sizes plus containment means the same key set.
    for (const Member &member : m_members) {
        const JsonValue *theirs = other.find(member.first);
        if (!theirs || *theirs != member.second)
            return false;
    }
    return true;
}

// ----------------------------------------------------------------- JsonValue

namespace {

constexpr int kShortDigits = 18; // every 18-digit mantissa fits in a qint64

using Shared = std::shared_ptr<const JsonDecimal>;

} // namespace

JsonValue::Storage JsonValue::numberStorage(const JsonDecimal &number)
{
    if (number.m_digits.size() > size_t(kShortDigits))
        return std::make_shared<const JsonDecimal>(number);
    qint64 mantissa = 0;
    for (const char digit : number.m_digits)
        mantissa = mantissa * 10 + (digit - '0');
    return ShortNumber{number.m_negative ? -mantissa : mantissa, number.m_exponent};
}

JsonValue::JsonValue() = default;
JsonValue::JsonValue(std::nullptr_t) {}
JsonValue::JsonValue(bool value) : m_value(value) {}
JsonValue::JsonValue(int value) : m_value(numberStorage(JsonDecimal::fromInteger(value))) {}
JsonValue::JsonValue(qint64 value) : m_value(numberStorage(JsonDecimal::fromInteger(value))) {}
JsonValue::JsonValue(double value) : m_value(numberStorage(JsonDecimal::fromDouble(value))) {}
JsonValue::JsonValue(const JsonDecimal &value) : m_value(numberStorage(value)) {}
JsonValue::JsonValue(const QString &value) : m_value(value) {}
JsonValue::JsonValue(const char *utf8) : m_value(QString::fromUtf8(utf8)) {}
JsonValue::JsonValue(JsonArray value) : m_value(std::make_shared<const JsonArray>(std::move(value))) {}
JsonValue::JsonValue(JsonObject value) : m_value(std::make_shared<const JsonObject>(std::move(value))) {}

JsonValue::Type JsonValue::type() const
{
    static constexpr Type types[] = {Type::Null,   Type::Bool,  Type::Number, Type::Number,
                                     Type::String, Type::Array, Type::Object};
    return types[m_value.index()];
}

bool JsonValue::toBool() const
{
    if (const bool *b = std::get_if<bool>(&m_value))
        return *b;
    if (const ShortNumber *n = std::get_if<ShortNumber>(&m_value))
        return n->mantissa != 0;
    if (const Shared *d = std::get_if<Shared>(&m_value))
        return !(*d)->isZero();
    return false;
}

JsonDecimal JsonValue::toDecimal() const
{
    if (const ShortNumber *n = std::get_if<ShortNumber>(&m_value)) {
        JsonDecimal result = JsonDecimal::fromInteger(n->mantissa);
        if (n->mantissa != 0)
            result.m_exponent += n->exponent;
        return result;
    }
    if (const Shared *d = std::get_if<Shared>(&m_value))
        return **d;
    if (const bool *b = std::get_if<bool>(&m_value))
        return JsonDecimal::fromInteger(*b ? 1 : 0);
    return JsonDecimal();
}

QString JsonValue::toString() const
{
    if (const QString *s = std::get_if<QString>(&m_value))
        return *s;
    return QString();
}

const JsonArray &JsonValue::toArray() const
{
    if (const auto *a = std::get_if<std::shared_ptr<const JsonArray>>(&m_value))
        return **a;
    return emptyArray();
}

const JsonObject &JsonValue::toObject() const
{
    if (const auto *o = std::get_if<std::shared_ptr<const JsonObject>>(&m_value))
        return **o;
    return emptyObject();
}

bool JsonValue::operator==(const JsonValue &other) const
{
    // Different kinds are unequal: a boolean never equals the number 1. Short
    // and long numbers never hold the same value.
    if (m_value.index() != other.m_value.index())
        return false;
    if (const bool *b = std::get_if<bool>(&m_value))
        return *b == std::get<bool>(other.m_value);
    if (const ShortNumber *n = std::get_if<ShortNumber>(&m_value)) {
        const ShortNumber &o = std::get<ShortNumber>(other.m_value);
        return n->mantissa == o.mantissa && n->exponent == o.exponent;
    }
    if (const Shared *d = std::get_if<Shared>(&m_value))
        return **d == *std::get<Shared>(other.m_value);
    if (const QString *s = std::get_if<QString>(&m_value))
        return *s == std::get<QString>(other.m_value);
    if (const auto *a = std::get_if<std::shared_ptr<const JsonArray>>(&m_value)) {
        const auto &b = std::get<std::shared_ptr<const JsonArray>>(other.m_value);
        return *a == b || **a == *b;
    }
    if (const auto *o = std::get_if<std::shared_ptr<const JsonObject>>(&m_value)) {
        const auto &b = std::get<std::shared_ptr<const JsonObject>>(other.m_value);
        return *o == b || **o == *b;
    }
    return true; // both null
}

QString jsonTextMember(const JsonObject &object, QStringView key)
{
    const JsonValue *value = object.find(key);
    if (!value)
        return QString();
    if (value->isString()) {
        const QString text = value->toString();
        return text.isNull() ? QStringLiteral("") : text;
    }
    if (value->isNumber())
        return value->toDecimal().toString();
    return QString();
}
