#pragma once

#include <QString>

// The resource folder that ships beside the program: the server jar, the agent,
// the converter tools, the status images and the Info values.
namespace Resources {

// <prefix>/share/quillon-server when installed, <build>/resources in a build
// tree; $QUILLON_RESOURCE_DIR or setFolder() override both.
QString folder();
void setFolder(const QString &path); // empty: back to the lookup above

// Path of "<name>.<type>" (or "<name>" with an empty type) in the resource
// folder, or an empty string when no such file exists.
QString pathForResource(const QString &name, const QString &type);

// The user's temporary folder, always ending in "/".
QString temporaryFolder();
}

namespace Info {
// A value of the Info file ("CFBundleVersion", "CFBundleShortVersionString",
// "maxThumbnailWidth"), or an empty string when absent.
QString value(const QString &key);
}
