#include "Playlist.h"

Playlist::Playlist(const Manner& howToPlay) : manner(howToPlay)
{
}

Playlist::~Playlist() = default;

void Playlist::add(std::unique_ptr<Item> item, const QString& token)
{
    playbacks.push_back(std::make_unique<Playback>(std::move(item), token));
    const Playback* playback = playbacks.back().get();
    connect(playback, &Playback::outcomeKnown, this,
            [this, token](const Outcome& outcome) { Q_EMIT outcomeKnown(token, outcome); });
    connect(playback, &Playback::noticed, this, &Playlist::noticed);
    connect(playback, &Playback::finished, this, &Playlist::countFinished);
}

void Playlist::begin()
{
    do {
        beginNext();
    } while (manner.atOnce && next < size());
}

void Playlist::beginNext()
{
    Playback& playback = *playbacks.at(static_cast<std::size_t>(next));
    ++next;
    if (quitting) {
        playback.stop();
    } else {
        playback.start(manner.device, manner.loop);
    }
}

void Playlist::countFinished()
{
    ++finishedItems;
    if (finishedItems == size()) {
        Q_EMIT allFinished();
    } else if (finishedItems == next) {
        beginNext();
    }
}

void Playlist::refuseAll(const QString& reason, const QString& hint)
{
    next = size();
    for (const auto& playback : playbacks) {
        playback->refuse(reason, hint);
    }
}

std::vector<Playback*> Playlist::inState(Playback::State state) const
{
    std::vector<Playback*> found;
    for (const auto& playback : playbacks) {
        if (playback->state() == state) {
            found.push_back(playback.get());
        }
    }
    return found;
}

void Playlist::togglePause()
{
    const std::vector<Playback*> playing = inState(Playback::State::Playing);
    for (Playback* playback : playing) {
        playback->pause();
    }
    if (playing.empty()) {
        for (Playback* playback : inState(Playback::State::Paused)) {
            playback->resume();
        }
    }
}

void Playlist::suspend()
{
    for (Playback* playback : inState(Playback::State::Playing)) {
        if (playback->pause()) { // false if it fails just now
            suspended.push_back(playback);
        }
    }
}

void Playlist::resumeSuspended()
{
    for (Playback* playback : suspended) {
        playback->resume();
    }
    suspended.clear();
}

void Playlist::stopCurrent()
{
    for (int i = 0; i < next; ++i) {
        playbacks.at(static_cast<std::size_t>(i))->stop();
    }
}

void Playlist::quit()
{
    quitting = true;
    stopCurrent();
}

std::vector<const Playback*> Playlist::current() const
{
    std::vector<const Playback*> found;
    for (int i = 0; i < next; ++i) {
        const Playback* playback = playbacks.at(static_cast<std::size_t>(i)).get();
        if (playback->state() != Playback::State::Finished) {
            found.push_back(playback);
        }
    }
    return found;
}
