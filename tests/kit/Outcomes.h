#ifndef KIT_OUTCOMES_H
#define KIT_OUTCOMES_H

#include <simplePlayer/SimplePlayerInterface.h>

#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <algorithm>
#include <functional>

/// Records the signals of a player in the order of their arrival, in the form of kova-play's
/// outcome lines: "ended TOKEN", "stopped TOKEN", "error TOKEN: reason". It is used on the player's
/// thread.
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

    /// Whether a report is about data that was refused during a stop or a failure. A
    /// DataSimplePlayer sometimes reports this before its outcome.
    static bool isRefusal(const QString& report)
    {
        return report.startsWith(QLatin1String("error ")) &&
               report.endsWith(QLatin1String(": Failed to push buffer"));
    }

private:
    void add(const QString& outcome)
    {
        all.append(outcome);
        if (inSlot) {
            inSlot();
        }
    }
};

/// Returns the reports of a DataSimplePlayer without refused data. For a StreamSimplePlayer,
/// refused data is an outcome.
inline QStringList withoutRefusals(QStringList reports)
{
    reports.erase(std::remove_if(reports.begin(), reports.end(), Outcomes::isRefusal),
                  reports.end());
    return reports;
}

#endif
