#ifndef BENCH_KOVA_PLAYBACK_H
#define BENCH_KOVA_PLAYBACK_H

#include "Contender.h"

#include <simplePlayer/SimplePlayerInterface.h>

/// A player of this library as a contender.
class KovaPlayback : public Playback
{
public:
    KovaPlayback(std::unique_ptr<SimplePlayer> frontObject, bool loop, const Outcome& outcome)
        : player(std::move(frontObject))
    {
        player->loop = loop;
        QObject::connect(player.get(), &SimplePlayer::playbackEnded,
                         [outcome](const QString&) { outcome(true); });
        QObject::connect(player.get(), &SimplePlayer::playbackErrorReported,
                         [outcome](const QString&, const QString&) { outcome(false); });
    }

    void start() override { player->startPlayback(); }

private:
    const std::unique_ptr<SimplePlayer> player;
};

#endif
