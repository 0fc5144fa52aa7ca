#pragma once

#include "json/JsonValue.h"

#include <QList>
#include <QString>
#include <QStringView>
#include <optional>

// A read-only snapshot of the server's conversion queue, rebuilt on every
// poll. Each constructor takes a parsed JSON object or nothing and gives
// nothing for nothing. A JSON null, or a value of another kind, where an
// object, array or boolean belongs counts as a missing member.

// One file, being converted or waiting.
class KRQueueItem
{
public:
    QString itemId() const { return m_itemId; }   // null when "id" is missing
    void setItemId(const QString &itemId) { m_itemId = itemId; }
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }

    static std::optional<KRQueueItem> itemFromDictionary(const JsonObject *dictionary);

private:
    QString m_itemId;
    QString m_name;
};

// Progress of the file being converted.
class KRConversionState
{
public:
    // Percent done as the server reports it; nothing when missing.
    std::optional<JsonDecimal> percentDone() const { return m_percentDone; }
    void setPercentDone(std::optional<JsonDecimal> percentDone) { m_percentDone = percentDone; }
    // Seconds still needed; nothing when the server cannot estimate.
    std::optional<JsonDecimal> eta() const { return m_eta; }
    void setEta(std::optional<JsonDecimal> eta, bool etaIsNull = false);
    // Whether the server sent "eta": null rather than leaving it out.
    bool etaIsNull() const { return m_etaIsNull; }
    bool paused() const { return m_paused; }
    void setPaused(bool paused) { m_paused = paused; }

    static std::optional<KRConversionState> stateFromDictionary(const JsonObject *dictionary);

private:
    std::optional<JsonDecimal> m_percentDone;
    std::optional<JsonDecimal> m_eta;
    bool m_etaIsNull = false;
    bool m_paused = false;
};

// The file being converted now and its progress.
class KRConvertedItem
{
public:
    std::optional<KRQueueItem> item() const { return m_item; }
    void setItem(std::optional<KRQueueItem> item) { m_item = std::move(item); }
    std::optional<KRConversionState> conversionState() const { return m_conversionState; }
    void setConversionState(std::optional<KRConversionState> state) { m_conversionState = std::move(state); }

    static std::optional<KRConvertedItem> itemFromDictionary(const JsonObject *dictionary);

private:
    std::optional<KRQueueItem> m_item;
    std::optional<KRConversionState> m_conversionState;
};

// The whole snapshot.
class KRConversion
{
public:
    // Nothing when no file is being converted.
    std::optional<KRConvertedItem> convertedItem() const { return m_convertedItem; }
    void setConvertedItem(std::optional<KRConvertedItem> item) { m_convertedItem = std::move(item); }
    // The waiting files in queue order; nothing when the document had no
    // "queue", which is not the same as an empty queue.
    const std::optional<QList<KRQueueItem>> &queue() const { return m_queue; }
    void setQueue(std::optional<QList<KRQueueItem>> queue) { m_queue = std::move(queue); }

    static std::optional<KRConversion> conversionFromDictionary(const JsonObject *dictionary);
    // The snapshot under "conversion" of the server's whole queue document;
    // nothing when the text does not parse or holds no such object.
    static std::optional<KRConversion> conversionFromJSONString(QStringView text);

private:
    std::optional<KRConvertedItem> m_convertedItem;
    std::optional<QList<KRQueueItem>> m_queue;
};
