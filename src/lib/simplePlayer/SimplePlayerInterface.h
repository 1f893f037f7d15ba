#ifndef SIMPLE_PLAYER_INTERFACE_H
#define SIMPLE_PLAYER_INTERFACE_H

#include "simplePlayer/simpleplayer_export.h"

#include <QtCore/QObject>
#include <QtCore/QString>

/// The interface of all players of one audio item.
///
/// A client creates one player per item and learns the outcome from exactly one of the three
/// signals. Each signal carries the `token` that the client chose. A player emits at most one
/// signal in its lifetime, always from the event loop and never from inside a call of the client.
/// It is safe to destroy a player at any time; destruction emits nothing.
///
/// There are two exceptions. FakePlayer emits playbackStopped() from inside every call of
/// stopPlayback(). A DataSimplePlayer emits playbackErrorReported() from a GStreamer thread, in
/// addition to its outcome, each time GStreamer refuses its data.
///
/// Thread safety: a player belongs to the thread that creates it. All functions are called from
/// that thread, which must run a Qt event loop with GLib's dispatcher (the default on Linux;
/// QT_NO_GLIB must not be set). GStreamer's messages arrive through this loop; without it no
/// outcome is ever reported. A player may be moved to another thread before its first start.
///
/// The first player of a process initializes GStreamer, which takes some milliseconds on a PC and
/// more on a small device. FakePlayer does not.
///
/// Use deleteLater() to delete a player in a slot of one of its own signals. A plain `delete` does
/// not crash there, because the player touches nothing after the emission, but other receivers may
/// then miss the signal. In a slot that runs on a GStreamer thread, a plain `delete` is an error.
///
/// The order and the names of members, virtual functions and signals are binary interface.
class KOVA_SIMPLEPLAYER_EXPORT SimplePlayer : public QObject
{
    Q_OBJECT

public:
    /// @param parent  the QObject parent, or null
    explicit SimplePlayer(QObject* parent);
    ~SimplePlayer() override;

    /// Starts playback, or resumes it after a pause.
    ///
    /// The first start builds the pipeline. A start after stopPlayback() plays the item from its
    /// beginning, but reports no second outcome. A start after the end of the item plays nothing
    /// unless stopPlayback() was called in between.
    ///
    /// @return true if playback was requested; the outcome follows as a signal. False if the
    ///         pipeline could not be built or refused to start; an error is logged. A false result
    ///         emits no signal by itself, but GStreamer may report its reason (for example a device
    ///         that cannot be opened) as playbackErrorReported() from the event loop.
    virtual bool startPlayback() = 0;

    /// Pauses playback at the current position; startPlayback() resumes it.
    ///
    /// @return true if the pause was requested. False, with an error in the log, if the player was
    ///         never started, has failed, or GStreamer refused. Emits no signal in either case.
    virtual bool pausePlayback() = 0;

    /// Stops playback and releases the output device.
    ///
    /// @return true if playback was stopped; playbackStopped() follows. False, with an error in the
    ///         log, if there was nothing to stop or GStreamer refused; playbackErrorReported()
    ///         follows with the reason "Not initialized" or "stop failed". No signal follows if the
    ///         outcome was reported before.
    virtual bool stopPlayback() = 0;

    /// Whether the item starts again at its end instead of reporting the end. The client may set it
    /// before or during playback, on the player's thread. Only UriSimplePlayer can loop; the other
    /// players log an error and report the end as usual.
    bool loop = false;

private:
    /// Part of the layout that clients were compiled against. Always zero, never read.
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
    /// @param reason  a text of this library ("Not initialized", "stop failed",
    ///                "Failed to push buffer", "Failed to flush pipeline") or GStreamer's error
    ///                message in the language of the process ("Unknown error" when it has none)
    void playbackErrorReported(const QString& token, const QString& reason);
};

/// A player that plays nothing, for clients that need a player on a device without sound.
///
/// It never ends and never fails. Unlike the other players it emits playbackStopped() from inside
/// every call of stopPlayback(). Its class is declared in this header.
class KOVA_SIMPLEPLAYER_EXPORT FakePlayer : public SimplePlayer
{
public:
    /// @param itemToken  the identifier that playbackStopped() carries
    /// @param parent     the QObject parent, or null
    explicit FakePlayer(const QString& itemToken, QObject* parent = nullptr);
    ~FakePlayer() override;

    /// Does nothing. @return true
    bool startPlayback() override;
    /// Does nothing. @return true
    bool pausePlayback() override;
    /// Emits playbackStopped() before it returns, on the calling thread. @return true
    bool stopPlayback() override;

private:
    QString token;
};

#endif
