#ifndef KIT_VIRTUAL_CARD_H
#define KIT_VIRTUAL_CARD_H

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/// A sound card without hardware that exists during the lifetime of this object. It records
/// everything that is played and logs every event. Both can be read at any time.
///
/// In this process and the processes that it starts, ALSA has only the cards that exist now, and
/// none of the machine's own devices. Create the first card before other threads run, because it
/// sets an environment variable; create further ones at any time, on any thread.
class VirtualCard
{
public:
    struct Settings
    {
        /// How many times faster than real time the card plays. An emulated processor is slow, and
        /// so is its card.
        double speed = qEnvironmentVariableIsSet("KOVA_EMULATOR") ? 4.0 : 20.0;
        bool canPause = true;
        /// What the card refuses: "open", "format" or "rate"; nothing when empty.
        QString refuse;
        /// After so many frames the card is unplugged; never when negative.
        qint64 vanishAfter = -1;
        /// After so many frames the card stalls; never when negative.
        qint64 stallAfter = -1;
        /// Whether a client that writes too late gets an underrun, as on hardware. Otherwise the
        /// card waits for it, so that all sound arrives however busy the machine is.
        bool underruns = false;

        /// A card that plays at this speed.
        static Settings atSpeed(double speed);
        /// A card that refuses this.
        static Settings refusing(const QString& what);
        /// A card that is unplugged after so many frames.
        static Settings vanishingAfter(qint64 frames);
        /// A card that stalls after so many frames.
        static Settings stallingAfter(qint64 frames);
        /// A card that stalls after a tenth of a second at 48 kHz, so that longer items do not end.
        static Settings stalled();
    };

    /// An event of the card.
    struct Event
    {
        qint64 ns;       ///< nanoseconds of the monotonic clock
        QString name;    ///< "open", "configure", "first-frame", "drained" …
        QString details; ///< may be empty
    };

    /// Adds a new card that has played nothing yet.
    /// @param name  letters, digits, "-" and "_"; no other existing card has it
    explicit VirtualCard(const QString& name, const Settings& settings);
    explicit VirtualCard(const QString& name);
    ~VirtualCard();
    VirtualCard(const VirtualCard&) = delete;
    VirtualCard& operator=(const VirtualCard&) = delete;

    /// The name of the card for ALSA and for players.
    QString device() const;

    /// Everything that was played, without the header of the file. Sound of another format than the
    /// first one is in the further files.
    /// @param file  which of the recordPaths()
    QByteArray samples(int file = 0) const;
    /// The same as a number of frames.
    qint64 frames(int file = 0) const;
    /// Runs the event loop until so many were played. @return whether they were in time
    bool waitForFrames(qint64 count) const;
    /// How the samples are stored: "U8", "S16", "S24" (three bytes), "S32", "F32" or "F64"; empty
    /// when nothing was recorded.
    QString format(int file = 0) const;
    int rate(int file = 0) const;
    int channels(int file = 0) const;

    /// The WAV file of the first format.
    QString recordPath() const;
    /// All WAV files, in the order in which they were begun.
    QStringList recordPaths() const;

    /// Returns all events so far, in the order of the card's log.
    QVector<Event> events() const;
    /// Returns their names only.
    QStringList eventNames() const;
    /// Whether there was such an event.
    bool has(const QString& eventName) const;

private:
    const QString name;
};

#endif
