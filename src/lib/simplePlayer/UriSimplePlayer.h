#ifndef URI_SIMPLE_PLAYER_H
#define URI_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

class UriSimplePlayerImpl;

/// Plays a local file or a web resource. This is the only player that can loop.
class KOVA_SIMPLEPLAYER_EXPORT UriSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param uri     the item. A text that begins with "http://" or "https://" is used unchanged.
    ///                Any other text names a local file: by its path, which may be relative to the
    ///                current directory at this moment, or by "file://" followed by its path.
    ///                Percent escapes are not decoded, and schemes are recognized in lower case
    ///                only. If the file does not exist, this is logged now, and startPlayback()
    ///                returns false. A web address ends at its first null character.
    /// @param token   the identifier in signals and log lines
    /// @param device  the ALSA device, for example "default". An empty name is not replaced by a
    ///                default. The name ends at its first null character
    /// @param parent  the QObject parent, or null
    UriSimplePlayer(const QString& uri, const QString& token, const QString& device,
                    QObject* parent = nullptr);
    ~UriSimplePlayer() override;

    bool startPlayback() override;
    bool pausePlayback() override;
    bool stopPlayback() override;

private:
    UriSimplePlayerImpl* engine; ///< a QObject child, destroyed with this object
};

#endif
