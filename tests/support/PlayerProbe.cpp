#include "support/PlayerProbe.h"

#include "support/GstLeaks.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

#include <gst/gst.h>

PlayerProbe::PlayerProbe(SimplePlayer* playerToHold) : player(playerToHold), outcomes(playerToHold)
{
}

PlayerProbe::~PlayerProbe() = default;

bool PlayerProbe::waitForOutcome() const
{
    return waitFor([this] { return !outcomes.all.isEmpty(); });
}

QStringList PlayerProbe::finish()
{
    waitForOutcome();
    player->stopPlayback();
    deliverQueuedEvents();
    return destroy();
}

QStringList PlayerProbe::destroy()
{
    player.reset();
    deliverQueuedEvents();
    return outcomes.all;
}

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

static QStringList knownObjects;

void prepareLeakCheck()
{
    GList* finders = gst_type_find_factory_get_list();
    for (GList* i = finders; i; i = i->next) {
        if (GstPluginFeature* loaded = gst_plugin_feature_load(GST_PLUGIN_FEATURE(i->data))) {
            gst_object_unref(loaded);
        }
    }
    gst_plugin_feature_list_free(finders);
    knownObjects = liveGstObjects();
}

QString leakedByPlayers()
{
    return leakedGstObjects(knownObjects).join(QStringLiteral(", "));
}

void overlookLeakedObject(const QString& type)
{
    knownObjects.append(type);
}
