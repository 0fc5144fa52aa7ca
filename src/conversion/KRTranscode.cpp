#include "conversion/KRTranscode.h"

namespace {

const JsonValue *member(const JsonObject &object, QStringView key)
{
    const JsonValue *value = object.find(key);
    return value && !value->isNull() ? value : nullptr;
}

// The object under `key`, or nullptr when it is missing, null or no object.
const JsonObject *objectMember(const JsonObject &object, QStringView key)
{
    const JsonValue *value = member(object, key);
    return value && value->isObject() ? &value->toObject() : nullptr;
}

std::optional<JsonDecimal> numberMember(const JsonObject &object, QStringView key)
{
    const JsonValue *value = member(object, key);
    if (!value || !value->isNumber())
        return std::nullopt;
    return value->toDecimal();
}

}

std::optional<KRQueueItem> KRQueueItem::itemFromDictionary(const JsonObject *dictionary)
{
    if (!dictionary)
        return std::nullopt;
    KRQueueItem item;
    item.setItemId(jsonTextMember(*dictionary, u"id"));
    item.setName(jsonTextMember(*dictionary, u"name"));
    return item;
}

void KRConversionState::setEta(std::optional<JsonDecimal> eta, bool etaIsNull)
{
    m_eta = eta;
    m_etaIsNull = !eta && etaIsNull;
}

std::optional<KRConversionState> KRConversionState::stateFromDictionary(const JsonObject *dictionary)
{
    if (!dictionary)
        return std::nullopt;
    KRConversionState state;
    state.setPercentDone(numberMember(*dictionary, u"percentDone"));
    const JsonValue *eta = dictionary->find(u"eta");
    state.setEta(numberMember(*dictionary, u"eta"), eta && eta->isNull());
    const JsonValue *paused = member(*dictionary, u"paused");
    state.setPaused(paused && paused->toBool());
    return state;
}

std::optional<KRConvertedItem> KRConvertedItem::itemFromDictionary(const JsonObject *dictionary)
{
    if (!dictionary)
        return std::nullopt;
    KRConvertedItem converted;
    converted.setItem(KRQueueItem::itemFromDictionary(objectMember(*dictionary, u"item")));
    converted.setConversionState(
        KRConversionState::stateFromDictionary(objectMember(*dictionary, u"conversionState")));
    return converted;
}

std::optional<KRConversion> KRConversion::conversionFromDictionary(const JsonObject *dictionary)
{
    if (!dictionary)
        return std::nullopt;
    KRConversion conversion;
    conversion.setConvertedItem(
        KRConvertedItem::itemFromDictionary(objectMember(*dictionary, u"convertedItem")));

    const JsonValue *queue = member(*dictionary, u"queue");
    if (queue && queue->isArray()) {
        const JsonArray &elements = queue->toArray();
        QList<KRQueueItem> items;
        items.reserve(qsizetype(elements.size()));
        for (const JsonValue &element : elements) {
            // An element that is no object names no file: leave it out rather
            // than show an empty row.
            if (!element.isObject())
                continue;
            items.append(*KRQueueItem::itemFromDictionary(&element.toObject()));
        }
        conversion.setQueue(std::move(items));
    }
    return conversion;
}

std::optional<KRConversion> KRConversion::conversionFromJSONString(QStringView text)
{
    const std::optional<JsonObject> document = dictionaryWithJSONString(text);
    if (!document)
        return std::nullopt;
    return conversionFromDictionary(objectMember(*document, u"conversion"));
}
