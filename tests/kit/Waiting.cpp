#include "kit/Waiting.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

bool waitFor(const std::function<bool()>& condition)
{
    QTimer deadline;
    deadline.setSingleShot(true);
    deadline.start(patience);
    // Wakes the loop for conditions that no event announces.
    QTimer poll;
    poll.start(1);
    while (!condition() && deadline.isActive()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return condition();
}

void deliverQueuedEvents()
{
    // Events are delivered in the order in which they were posted: ours is the last of them.
    QObject context;
    bool delivered = false;
    QMetaObject::invokeMethod(
        &context, [&delivered] { delivered = true; }, Qt::QueuedConnection);
    while (!delivered) {
        QCoreApplication::processEvents();
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}
