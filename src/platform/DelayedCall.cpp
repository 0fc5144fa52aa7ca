#include "platform/DelayedCall.h"

#include <QTimer>

namespace {
// Pending calls are single-shot timers parented to their target, marked with
// this object name so that the target's own timers are never touched.
const char *const kMarker = "quillon-delayed-call";
}

void DelayedCall::perform(QObject *target, int delayMs, std::function<void()> call)
{
    auto *timer = new QTimer(target);
    timer->setObjectName(QLatin1String(kMarker));
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, target, [timer, call = std::move(call)] {
        // Detach first: the call may cancel or re-arm calls of the same target.
        timer->setObjectName(QString());
        timer->deleteLater();
        call();
    });
    timer->start(delayMs);
}

void DelayedCall::cancelAll(QObject *target)
{
    const auto timers = target->findChildren<QTimer *>(QLatin1String(kMarker), Qt::FindDirectChildrenOnly);
    for (QTimer *timer : timers) {
        timer->stop();
        timer->setObjectName(QString());
        timer->deleteLater();
    }
}

int DelayedCall::pendingCount(const QObject *target)
{
    return int(target->findChildren<QTimer *>(QLatin1String(kMarker), Qt::FindDirectChildrenOnly).size());
}
