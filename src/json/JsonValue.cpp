#include "json/JsonInternal.h"

namespace {

// Objects up to this size are searched linearly; larger ones keep a hash of
// their keys. The views point into the member keys, whose character data is
// shared and never modified, so they stay valid for every copy of the object.
constexpr size_t kIndexThreshold = 12;

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

template <typename D>
std::shared_ptr<const D> sharedBool(bool value)
{
    // Booleans are two shared instances: reading "true" allocates nothing.
    static const std::shared_ptr<const D> yes = std::make_shared<const D>(true);
    static const std::shared_ptr<const D> no = std::make_shared<const D>(false);
    return value ? yes : no;
}

} // namespace

JsonValue::JsonValue() = default;
JsonValue::JsonValue(std::nullptr_t) {}
JsonValue::JsonValue(bool value) : m_data(sharedBool<Data>(value)) {}
JsonValue::JsonValue(int value) : m_data(std::make_shared<const Data>(JsonDecimal::fromInteger(value))) {}
JsonValue::JsonValue(qint64 value) : m_data(std::make_shared<const Data>(JsonDecimal::fromInteger(value))) {}
JsonValue::JsonValue(double value) : m_data(std::make_shared<const Data>(JsonDecimal::fromDouble(value))) {}
JsonValue::JsonValue(const JsonDecimal &value) : m_data(std::make_shared<const Data>(value)) {}
JsonValue::JsonValue(const QString &value) : m_data(std::make_shared<const Data>(value)) {}
JsonValue::JsonValue(const char *utf8) : m_data(std::make_shared<const Data>(QString::fromUtf8(utf8))) {}
JsonValue::JsonValue(JsonArray value) : m_data(std::make_shared<const Data>(std::move(value))) {}
JsonValue::JsonValue(JsonObject value) : m_data(std::make_shared<const Data>(std::move(value))) {}

JsonValue::Type JsonValue::type() const
{
    return m_data ? Type(int(m_data->value.index()) + 1) : Type::Null;
}

bool JsonValue::toBool() const
{
    if (!m_data)
        return false;
    if (const bool *b = std::get_if<bool>(&m_data->value))
        return *b;
    if (const JsonDecimal *d = std::get_if<JsonDecimal>(&m_data->value))
        return !d->isZero();
    return false;
}

JsonDecimal JsonValue::toDecimal() const
{
    if (!m_data)
        return JsonDecimal();
    if (const JsonDecimal *d = std::get_if<JsonDecimal>(&m_data->value))
        return *d;
    if (const bool *b = std::get_if<bool>(&m_data->value))
        return JsonDecimal::fromInteger(*b ? 1 : 0);
    return JsonDecimal();
}

QString JsonValue::toString() const
{
    if (m_data) {
        if (const QString *s = std::get_if<QString>(&m_data->value))
            return *s;
    }
    return QString();
}

const JsonArray &JsonValue::toArray() const
{
    if (m_data) {
        if (const JsonArray *a = std::get_if<JsonArray>(&m_data->value))
            return *a;
    }
    return emptyArray();
}

const JsonObject &JsonValue::toObject() const
{
    if (m_data) {
        if (const JsonObject *o = std::get_if<JsonObject>(&m_data->value))
            return *o;
    }
    return emptyObject();
}

bool JsonValue::operator==(const JsonValue &other) const
{
    if (m_data == other.m_data)
        return true;
    if (!m_data || !other.m_data)
        return false;
    // Different alternatives are unequal: a boolean never equals the number 1.
    return m_data->value == other.m_data->value;
}
