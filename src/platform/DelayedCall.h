#pragma once

#include <QObject>
#include <functional>

// Delayed self-messages: a call that runs on the target's thread after a delay
// unless the target cancels it or is destroyed first.
namespace DelayedCall {

// Runs `call` after `delayMs` milliseconds on `target`'s thread.
void perform(QObject *target, int delayMs, std::function<void()> call);

// Cancels every pending delayed call of `target`.
void cancelAll(QObject *target);

// Number of pending delayed calls of `target`.
int pendingCount(const QObject *target);

}
