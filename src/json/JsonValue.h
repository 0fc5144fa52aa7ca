#pragma once

#include <QString>
#include <QStringView>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

class JsonValue;

// A decimal number that keeps its exact digits: "0.1" stays 0.1 and
// 12345678901234567890 keeps every digit. Written without exponent.
class JsonDecimal
{
public:
    JsonDecimal(); // zero
    // Reads an optional sign, digits, an optional "." with digits and an
    // optional exponent, all of `text`. Nothing when that is not a number or
    // the value lies outside the range that is kept.
    static std::optional<JsonDecimal> fromString(QStringView text);
    static JsonDecimal fromInteger(qint64 value);
    static JsonDecimal fromDouble(double value); // shortest plain decimal form

    QString toString() const; // "-12", "0.5": no exponent, no "+", no grouping
    qint64 toLongLong() const; // fraction truncated, saturating
    int toInt() const;         // like toLongLong, narrowed
    double toDouble() const;
    bool isZero() const;

    bool operator==(const JsonDecimal &other) const; // by value: 1.50 == 1.5
    bool operator!=(const JsonDecimal &other) const { return !(*this == other); }

private:
    friend class JsonReader;
    friend class JsonWriter;
    friend class JsonValue;
    bool m_negative = false;
    std::string m_digits;   // significant digits, no leading or trailing zeros; empty for zero
    int m_exponent = 0;     // value = digits * 10^exponent
};

using JsonArray = std::vector<JsonValue>;

// A dictionary with string keys. Members enumerate in insertion order;
// inserting an existing key replaces its value in place.
class JsonObject
{
public:
    using Member = std::pair<QString, JsonValue>;
    using const_iterator = std::vector<Member>::const_iterator;

    JsonObject();
    JsonObject(std::initializer_list<Member> members);

    void insert(const QString &key, JsonValue value);
    const JsonValue *find(QStringView key) const; // nullptr when absent
    bool contains(QStringView key) const { return find(key) != nullptr; }
    int size() const { return int(m_members.size()); }
    bool isEmpty() const { return m_members.empty(); }
    const_iterator begin() const { return m_members.begin(); }
    const_iterator end() const { return m_members.end(); }

    bool operator==(const JsonObject &other) const; // same keys, equal values; order ignored
    bool operator!=(const JsonObject &other) const { return !(*this == other); }

private:
    friend class JsonReader;
    void buildIndex();
    std::vector<Member> m_members;
    std::shared_ptr<void> m_index; // lookup index for large objects, built lazily
};

// The shared value model of the JSON writer and reader.
class JsonValue
{
public:
    enum class Type { Null, Bool, Number, String, Array, Object };

    JsonValue(); // null
    JsonValue(std::nullptr_t);
    JsonValue(bool value);
    JsonValue(int value);
    JsonValue(qint64 value);
    JsonValue(double value);
    JsonValue(const JsonDecimal &value);
    JsonValue(const QString &value);
    JsonValue(const char *utf8);
    JsonValue(JsonArray value);
    JsonValue(JsonObject value);

    Type type() const;
    bool isNull() const { return type() == Type::Null; }
    bool isBool() const { return type() == Type::Bool; }
    bool isNumber() const { return type() == Type::Number; }
    bool isString() const { return type() == Type::String; }
    bool isArray() const { return type() == Type::Array; }
    bool isObject() const { return type() == Type::Object; }

    // Conversions never fail: a value of another kind gives the empty result
    // (false, zero, empty string, empty array or object).
    bool toBool() const;             // a boolean, or a number other than zero
    JsonDecimal toDecimal() const;   // a number; a boolean gives 1 or 0
    QString toString() const;        // a string
    const JsonArray &toArray() const;
    const JsonObject &toObject() const;

    bool operator==(const JsonValue &other) const; // a boolean never equals a number
    bool operator!=(const JsonValue &other) const { return !(*this == other); }

private:
    friend class JsonReader;
    friend class JsonWriter;
    // A number of up to 18 significant digits, held without an allocation:
    // value = mantissa * 10^exponent, the mantissa without trailing zeros.
    struct ShortNumber
    {
        qint64 mantissa;
        int exponent;
    };
    // Strings are Qt's implicitly shared text; long numbers, arrays and
    // objects are immutable and shared on copy. A number is always held in
    // the shortest form that fits, so equal numbers have equal storage.
    using Storage = std::variant<std::monostate, bool, ShortNumber, std::shared_ptr<const JsonDecimal>, QString,
                                 std::shared_ptr<const JsonArray>, std::shared_ptr<const JsonObject>>;
    static Storage numberStorage(const JsonDecimal &number);
    Storage m_value;
};

// The text of `object`'s member `key` as records read it: a string as it is
// (present even when empty), a number as its digits; a null QString when the
// member is missing, JSON null or of another kind.
QString jsonTextMember(const JsonObject &object, QStringView key);

// The writer: the dictionary as JSON text in the program's own layout.
QString jsonStringValue(const JsonObject &dictionary);

// The reader: the object at the start of `text`, or nothing when the text does
// not begin with a readable object. Text after the object is ignored.
std::optional<JsonObject> dictionaryWithJSONString(QStringView text);

// Deepest nesting of objects and arrays the reader accepts; deeper text fails.
constexpr int kJsonMaxDepth = 512;
