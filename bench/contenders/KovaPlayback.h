#ifndef BENCH_KOVA_PLAYBACK_H
#define BENCH_KOVA_PLAYBACK_H

#include "Contender.h"

#include <simplePlayer/UriSimplePlayer.h>

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

inline std::unique_ptr<Playback> makeKovaUriPlayback(const std::string& item,
                                                     const std::string& device, bool loop,
                                                     const Outcome& outcome)
{
    return std::make_unique<KovaPlayback>(
        std::make_unique<UriSimplePlayer>(QString::fromStdString(item), QStringLiteral("token"),
                                          QString::fromStdString(device)),
        loop, outcome);
}

#endif
