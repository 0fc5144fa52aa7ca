#pragma once

// Shared by the two folder files; not part of the library's interface.

#include "json/JsonValue.h"

#include <QString>
#include <optional>

namespace FolderFile {

// Same text whether or not the other string is null, but null differs from empty.
inline bool sameString(const QString &a, const QString &b)
{
    return a.isNull() == b.isNull() && a == b;
}

// Creates the application folder and writes {"folders": array} as UTF-8 over
// the file in place. Errors are ignored: the previous file stays.
void write(const QString &folder, const QString &fileName, JsonArray folders);

// The text of the file, or nothing when it cannot be read as UTF-8.
std::optional<QString> read(const QString &fileName);

// The "folders" array of the text; empty when the text does not parse or
// holds no array there.
JsonArray foldersOf(const QString &text);

}
