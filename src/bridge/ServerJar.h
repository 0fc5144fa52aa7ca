#pragma once

#include <QString>
#include <QStringList>

// A look at the server jar before the JVM gets it: a damaged jar otherwise
// shows only as a NoClassDefFoundError that does not name the file.
namespace ServerJar {

// Why the jar at `path` cannot serve `classes` ("a/b/C.class"): not a zip
// archive, its directory cut off or out of place, a class missing. Empty
// when it reads as a jar holding them all. Reads the zip's central
// directory and the local header of each class, not the compressed data.
QString problem(const QString &path, const QStringList &classes);

}
