#ifndef SIMPLE_PLAYER_INTERFACE_H
#define SIMPLE_PLAYER_INTERFACE_H

#include "simplePlayer/simpleplayer_export.h"

#include <QtCore/QObject>
#include <QtCore/QString>

/// A player of one audio item: the interface that all kinds of source share.
///
/// A client makes one player object per item and learns the outcome from exactly one of the three
/// signals, emitted at most once in the player's life and always from the event loop, never from
/// inside a call of the client. The signals carry the `token` that the client chose, so that it
/// can tell its players apart. Destroying a player at any time is safe and emits no outcome.
///
/// There are two exceptions: FakePlayer emits from inside stopPlayback(), every time; and a
/// DataSimplePlayer whose data GStreamer refuses emits playbackErrorReported() from one of
/// GStreamer's threads, each time, beside its one outcome.
///
/// The thread that makes a player owns it: it calls all functions, and it must run a Qt event loop
/// on GLib's dispatcher (Qt's default on Linux; QT_NO_GLIB must not be set), because GStreamer's
/// messages arrive through it. Without such a loop no outcome is ever reported.
///
/// The first player of a process initializes GStreamer, which takes some milliseconds on a PC and
/// more on a small device. FakePlayer does not.
///
/// In a slot of its own signals, delete a player with deleteLater(). A plain `delete` there is
/// survived, because nothing of the player is touched after the emission, but other receivers of
/// the signal may not hear of the outcome then; and in a slot that runs on one of GStreamer's
/// threads it is an error.
///
/// The order of members, virtual functions and signals is binary interface; so are their names.
class KOVA_SIMPLEPLAYER_EXPORT SimplePlayer : public QObject
{
    Q_OBJECT

public:
    /// @param parent  the owner in the sense of QObject, or null
    explicit SimplePlayer(QObject* parent);
    ~SimplePlayer() override;

    /// Starts playback, or resumes it after a pause.
    ///
    /// The first start builds the pipeline. A start after stopPlayback() plays the item from its
    /// beginning again; no second outcome is reported for it. A start after the item has ended
    /// plays nothing unless stopPlayback() came between.
    ///
    /// @return true when playback was requested: the outcome follows as a signal. False when the
    ///         pipeline could not be built or refused to start: an error line is logged. No signal
    ///         comes from this call then, but GStreamer may still report the reason of the
    ///         refusal (a device that cannot be opened) as playbackErrorReported().
    virtual bool startPlayback() = 0;

    /// Halts playback at the current position; startPlayback() resumes it.
    ///
    /// @return true when the pause was requested; false, with an error line in the log, when the
    ///         player was never started, has failed, or refused. No signal follows in any case.
    virtual bool pausePlayback() = 0;

    /// Stops playback and gives the output device back.
    ///
    /// @return true when playback was stopped: playbackStopped() follows. False, with an error line
    ///         in the log, when there was nothing to stop or the stop was refused:
    ///         playbackErrorReported() follows with the reason "Not initialized" or "stop failed".
    ///         Nothing follows when the outcome was reported before.
    virtual bool stopPlayback() = 0;

    /// Whether the item begins again at its end instead of reporting it. Set by the client, before
    /// or during playback, from the player's thread. Only UriSimplePlayer can loop; the others log
    /// an error and report the end as usual.
    bool loop = false;

private:
    /// Keeps the layout that clients were built against. Always zero, never read.
    quint32 reserved = 0;

Q_SIGNALS:
    /// The item was played to its end.
    /// @param token  the player's token
    void playbackEnded(const QString& token);

    /// Playback was stopped by stopPlayback().
    /// @param token  the player's token
    void playbackStopped(const QString& token);

    /// Playback failed.
    /// @param token   the player's token
    /// @param reason  a text of this library ("Not initialized", "stop failed", "Failed to push
    ///                buffer", "Failed to flush pipeline") or GStreamer's error message in the
    ///                language of the process ("Unknown error" when it has none)
    void playbackErrorReported(const QString& token, const QString& reason);
};

/// A player that plays nothing: for clients that must have a player where there is no sound.
///
/// It never ends and never fails. Unlike a real player it emits playbackStopped() from inside
/// stopPlayback(), every time.
class KOVA_SIMPLEPLAYER_EXPORT FakePlayer : public SimplePlayer
{
public:
    /// @param itemToken  the identifier that playbackStopped() carries
    /// @param parent     the owner in the sense of QObject, or null
    explicit FakePlayer(const QString& itemToken, QObject* parent = nullptr);
    ~FakePlayer() override;

    /// Does nothing. @return true
    bool startPlayback() override;
    /// Does nothing. @return true
    bool pausePlayback() override;
    /// Emits playbackStopped() at once, on the calling thread. @return true
    bool stopPlayback() override;

private:
    QString token;
};

#endif
