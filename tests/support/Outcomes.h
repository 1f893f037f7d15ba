#ifndef TEST_SUPPORT_OUTCOMES_H
#define TEST_SUPPORT_OUTCOMES_H

#include <simplePlayer/SimplePlayerInterface.h>

#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <functional>

/// Records the signals of a player in the order of their arrival, one text each, in the form of
/// kova-play's outcome lines: "ended TOKEN", "stopped TOKEN", "error TOKEN: reason". Lives on the
/// player's thread.
class Outcomes : public QObject
{
public:
    explicit Outcomes(const SimplePlayer* player)
    {
        connect(player, &SimplePlayer::playbackEnded, this,
                [this](const QString& token) { add(QStringLiteral("ended ") + token); });
        connect(player, &SimplePlayer::playbackStopped, this,
                [this](const QString& token) { add(QStringLiteral("stopped ") + token); });
        connect(player, &SimplePlayer::playbackErrorReported, this,
                [this](const QString& token, const QString& reason) {
                    add(QStringLiteral("error %1: %2").arg(token, reason));
                });
    }

    QStringList all;

    /// Called inside the player's signal, after the outcome was recorded.
    std::function<void()> inSlot;

private:
    void add(const QString& outcome)
    {
        all.append(outcome);
        if (inSlot) {
            inSlot();
        }
    }
};

#endif
