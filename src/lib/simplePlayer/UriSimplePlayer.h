#ifndef URI_SIMPLE_PLAYER_H
#define URI_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

class UriSimplePlayerImpl;

/// Plays a local file or a web resource. The only kind of player that can loop.
class KOVA_SIMPLEPLAYER_EXPORT UriSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param uri     what to play: a text that begins with "http://" or "https://" is taken as it
    ///                stands; everything else names a local file, either by its path (a relative
    ///                one counts from the current directory of this moment) or by "file://"
    ///                followed by its path. No percent escape is decoded, and the schemes are
    ///                recognised in lower case only. A file that does not exist is logged now and
    ///                makes startPlayback() return false. A web address is cut off at a null
    ///                character; no file has one in its name.
    /// @param token   the identifier that the signals and the log carry
    /// @param device  the ALSA device to play on, "default" for instance; there is no default for
    ///                an empty name. It is cut off at a null character
    /// @param parent  the owner in the sense of QObject, or null
    UriSimplePlayer(const QString& uri, const QString& token, const QString& device,
                    QObject* parent = nullptr);
    ~UriSimplePlayer() override;

    bool startPlayback() override;
    bool pausePlayback() override;
    bool stopPlayback() override;

private:
    UriSimplePlayerImpl* engine; ///< a QObject child: it dies with this object, never before
};

#endif
