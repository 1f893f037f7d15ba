#include "Playback.h"

#include "kit/PlayerProbe.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <cmath>

static constexpr int wavHeaderSize = 44;
static constexpr int frameSize = 4; // of all items: 16 bit, stereo

const char* nameOf(Teardown teardown)
{
    static constexpr std::array names{
        "stopped",       "stopped and deleted",     "deleted",
        "deleted later", "deleted later in a slot", "deleted in a slot"};
    return names[static_cast<std::size_t>(teardown)];
}

Playback::Playback(const Source& source, const Item& item, Teardown how, const QString& cardName,
                   const VirtualCard::Settings& settings)
    : Playback(source, item, how, cardName, settings, cardName)
{
}

Playback::Playback(const Source& source, const Item& item, Teardown how, const QString& cardName,
                   const VirtualCard::Settings& settings, const QString& device)
    : card(cardName, settings), player(source, item.again(), device),
      front(player.probe.player.get()), frames((item.bytes.size() - wavHeaderSize) / frameSize),
      teardown(how)
{
    if (deletesInASlot()) {
        player.probe.outcomes.inSlot = [this] {
            if (!outcomes().isEmpty()) {
                dispose();
            }
        };
    }
}

Playback::~Playback()
{
    player.probe.player.reset();
    QFile::remove(player.item.fifo);
}

VirtualCard::Settings Playback::impatientCard()
{
    VirtualCard::Settings settings;
    settings.underruns = true;
    return settings;
}

bool Playback::start()
{
    started = player->startPlayback();
    return started;
}

bool Playback::startAndFeed()
{
    started = player.startAndFeed();
    return started;
}

Progress Playback::progress() const
{
    if (!outcomes().isEmpty()) {
        return Progress::Finished;
    }
    const qint64 played = card.frames();
    return played >= frames - 2400   ? Progress::Last50Ms
           : played >= frames / 3    ? Progress::Middle
           : card.has("first-frame") ? Progress::FirstFrame
           : card.has("configure")   ? Progress::Prerolling
                                     : Progress::Started;
}

bool Playback::reach(Progress wanted) const
{
    return waitFor([&] { return progress() >= wanted; });
}

// ---- Teardown ----------------------------------------------------------------------------------

bool Playback::deletesInASlot() const
{
    return teardown == Teardown::DeletedLaterInASlot || teardown == Teardown::DeletedInASlot;
}

bool Playback::stopsFirst() const
{
    return teardown != Teardown::Deleted && teardown != Teardown::DeletedLater;
}

void Playback::dispose()
{
    SimplePlayer* const released = player.probe.player.release();
    if (teardown == Teardown::DeletedLater || teardown == Teardown::DeletedLaterInASlot) {
        if (released) {
            released->deleteLater();
        }
    } else {
        delete released;
    }
}

QString Playback::tearDown()
{
    const QStringList before = outcomes();
    const bool canStop = started && !before.join(QString()).startsWith(QLatin1String("error"));
    if (front && stopsFirst() && front->stopPlayback() != canStop) {
        return QStringLiteral("the stop returned %1").arg(canStop ? "false" : "true");
    }
    finish();
    deliverQueuedEvents();
    if (front) {
        return QStringLiteral("the player was not deleted");
    }
    return problemOf(before);
}

/// Deletes the player, or waits until a slot has.
void Playback::finish()
{
    if (teardown == Teardown::Stopped) {
        reach(Progress::Finished);
        deliverQueuedEvents();
    }
    if (teardown == Teardown::DeletedLater) {
        // From the event loop, as clients do: only then the loop itself deletes.
        QMetaObject::invokeMethod(
            &player.probe.outcomes, [this] { dispose(); }, Qt::QueuedConnection);
    } else if (!deletesInASlot()) {
        dispose();
    }
    waitFor([this] { return front.isNull(); });
}

/// @param before  the outcomes before the teardown
QString Playback::problemOf(const QStringList& before) const
{
    const QStringList none;
    const QStringList ended(QStringLiteral("ended token"));
    const QStringList stopped(QStringLiteral("stopped token"));
    const QStringList neverStarted(QStringLiteral("error token: Not initialized"));
    QVector<QStringList> allowed;
    if (!before.isEmpty()) {
        allowed = {before};
    } else if (teardown == Teardown::StoppedAndDeleted || teardown == Teardown::Deleted) {
        allowed = {none};
    } else if (teardown == Teardown::DeletedLater) {
        allowed = {none, ended}; // the end may come before the event that deletes
    } else if (!started) {
        allowed = {neverStarted};
    } else {
        allowed = {stopped, ended};
    }
    if (before.isEmpty() && !stopsFirst() && outcomes() != player.probe.outcomes.all) {
        return QStringLiteral("a push was reported as refused without a stop");
    }
    return allowed.contains(outcomes())
               ? QString()
               : QStringLiteral("the outcomes are \"%1\"").arg(outcomes().join("\", \""));
}

// ---- Others ------------------------------------------------------------------------------------

QString problemOfWholePlayback(const Source& source, const Item& item, const QString& cardName)
{
    const VirtualCard card(cardName);
    SourcePlayer player(source, item.again(), card.device());
    player.startAndFeed();
    const QStringList outcomes = player.finish();
    QFile::remove(player.item.fifo);
    return outcomes == QStringList("ended token")
               ? media::difference(card.samples(), item.bytes.mid(wavHeaderSize))
               : QStringLiteral("the outcomes are \"%1\"").arg(outcomes.join("\", \""));
}

void letPass(int microseconds, bool runsEventLoop)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.nsecsElapsed() < 1000LL * microseconds) {
        if (runsEventLoop) {
            QCoreApplication::processEvents();
        }
    }
}

void letRandomTimePass(QRandomGenerator& random, int most, bool runsEventLoop)
{
    letPass(static_cast<int>(most * std::pow(random.generateDouble(), 3.0)), runsEventLoop);
}

void letRandomTimePass(QRandomGenerator& random, int most)
{
    letRandomTimePass(random, most, random.bounded(2) == 0);
}

void addTeardowns()
{
    QTest::addColumn<Teardown>("teardown");
    for (const Teardown teardown : allTeardowns) {
        QTest::newRow(nameOf(teardown)) << teardown;
    }
}
