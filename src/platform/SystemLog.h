#pragma once

#include <QString>
#include <functional>

// The system log: one plain line on standard error, no prefix or level.
// Safe to call from any thread (Java threads log too).
void systemLog(const QString &line);

namespace SystemLog {
// Tests capture the lines; an empty function restores standard error.
using Sink = std::function<void(const QString &line)>;
void setSink(Sink sink);
}
