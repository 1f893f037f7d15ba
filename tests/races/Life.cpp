#include "Life.h"

#include "kit/PlayerProbe.h"

const char* nameOf(Death death)
{
    switch (death) {
    case Death::Stopped:
        return "stopped";
    case Death::StoppedAndDestroyed:
        return "stopped and destroyed";
    case Death::Destroyed:
        return "destroyed";
    case Death::DeletedLater:
        return "deleted later";
    case Death::DeletedLaterInItsSlot:
        return "deleted later in its slot";
    case Death::DestroyedInItsSlot:
        return "destroyed in its slot";
    }
    return "";
}

const char* nameOf(Moment moment)
{
    switch (moment) {
    case Moment::Started:
        return "started";
    case Moment::Prerolling:
        return "prerolling";
    case Moment::FirstFrame:
        return "at the first frame";
    case Moment::Middle:
        return "in the middle";
    case Moment::Last50Ms:
        return "in the last 50 ms";
    case Moment::Ended:
        return "ended";
    }
    return "";
}

Life::Life(const Stage& where, Death how)
    : player(where.newPlayer()), stage(where), death(how), outcomes(player)
{
    if (death == Death::DeletedLaterInItsSlot || death == Death::DestroyedInItsSlot) {
        outcomes.inSlot = [this] {
            if (!Outcomes::isRefusal(outcomes.all.last())) {
                bury();
            }
        };
    }
}

Life::~Life()
{
    delete player;
}

void Life::start() const
{
    stage.play(*player);
}

void Life::reach(Moment moment) const
{
    waitFor([&] { return now() >= moment; });
}

Moment Life::now() const
{
    if (!outcomes.all.isEmpty()) {
        return Moment::Ended;
    }
    const qint64 frames = stage.item.sound.frames();
    const qint64 heard = stage.heardFrames();
    return heard >= frames - 2400          ? Moment::Last50Ms
           : heard >= frames / 3           ? Moment::Middle
           : stage.card.has("first-frame") ? Moment::FirstFrame
           : stage.card.has("configure")   ? Moment::Prerolling
                                           : Moment::Started;
}

bool Life::waitUntilDead() const
{
    return waitFor([this] { return player.isNull(); });
}

QStringList Life::told() const
{
    return withoutRefusals(outcomes.all);
}

/// Takes the player out of the world, in the manner of its death.
void Life::bury()
{
    if (death == Death::DeletedLater || death == Death::DeletedLaterInItsSlot) {
        player->deleteLater();
    } else {
        delete player;
    }
}

QString Life::die()
{
    const QStringList before = told();
    if (player && death != Death::Destroyed && death != Death::DeletedLater &&
        !player->stopPlayback()) {
        return QStringLiteral("the stop was refused");
    }
    switch (death) {
    case Death::Stopped:
        waitFor([this] { return !told().isEmpty(); });
        deliverQueuedEvents();
        bury();
        break;
    case Death::StoppedAndDestroyed:
    case Death::Destroyed:
        bury();
        break;
    case Death::DeletedLater:
        // From the event loop, as clients do: only then the loop itself deletes.
        QMetaObject::invokeMethod(
            &outcomes, [this] { bury(); }, Qt::QueuedConnection);
        waitUntilDead();
        break;
    case Death::DeletedLaterInItsSlot:
    case Death::DestroyedInItsSlot:
        waitUntilDead();
        break;
    }
    deliverQueuedEvents();
    return judge(before);
}

/// @param before  what was told when the life came to its end
QString Life::judge(const QStringList& before) const
{
    const QStringList nothing;
    const QStringList ended(QStringLiteral("ended token"));
    const QStringList stopped(QStringLiteral("stopped token"));
    QList<QStringList> allowed;
    if (!before.isEmpty()) {
        allowed = {before};
    } else if (death == Death::StoppedAndDestroyed || death == Death::Destroyed) {
        allowed = {nothing};
    } else if (death == Death::DeletedLater) {
        allowed = {nothing, ended}; // the end may come before the event that deletes
    } else {
        allowed = {stopped, ended};
    }
    if (player) {
        return QStringLiteral("the player lives");
    }
    // A player that goes down by its destruction says nothing at all.
    if ((death == Death::Destroyed || death == Death::DeletedLater) && told() != outcomes.all) {
        return QStringLiteral("a push was told to be refused");
    }
    return allowed.contains(told())
               ? QString()
               : QStringLiteral("the outcomes were \"%1\"").arg(told().join("\", \""));
}
