#pragma once

// Shared by the two folder files; not part of the library's interface.

#include "json/JsonValue.h"

#include <QList>
#include <QString>
#include <optional>

namespace FolderFile {

// Same text whether or not the other string is null, but null differs from empty.
inline bool sameString(const QString &a, const QString &b)
{
    return a.isNull() == b.isNull() && a == b;
}

// The members in the order name, type (when given), id, folderId; an absent
// value ends the object, since the server reads them in this order and stops
// at the first one missing.
JsonObject folderObject(const QString &name, const char *type, const QString &location, const QString &folderId);

// Creates the application folder and writes {"folders": array} as UTF-8
// through a temporary file renamed over the old one. A failure leaves the
// previous file and is reported to SaveFailures.
void write(const QString &folder, const QString &fileName, JsonArray folders);

// The text of the file, or nothing when it cannot be read as UTF-8.
std::optional<QString> read(const QString &fileName);

// The "folders" array of the text; empty when the text does not parse or
// holds no array there.
JsonArray foldersOf(const QString &text);

// One record per object of the "folders" array, in file order, with its
// name, location ("id") and folderId; `fillRest` reads what else the record
// holds. Anything but an object carries no folder at all.
template <typename Record, typename FillRest>
QList<Record> recordsOf(const QString &text, FillRest fillRest)
{
    const JsonArray elements = foldersOf(text);
    QList<Record> records;
    records.reserve(qsizetype(elements.size()));
    for (const JsonValue &element : elements) {
        if (!element.isObject())
            continue;
        const JsonObject &object = element.toObject();
        Record record;
        record.setName(jsonTextMember(object, u"name"));
        record.setLocation(jsonTextMember(object, u"id"));
        record.setFolderId(jsonTextMember(object, u"folderId"));
        fillRest(record, object);
        records.append(record);
    }
    return records;
}

}
