#ifndef URI_SIMPLE_PLAYER_P_H
#define URI_SIMPLE_PLAYER_P_H

#include "simplePlayer/SimplePlayerInterface_p.h"

class UriSimplePlayer;

/// The engine that plays a URI: uridecodebin ⇢ queue → audioconvert → audioresample → alsasink.
class UriSimplePlayerImpl : public SimplePlayerImpl
{
    Q_OBJECT

public:
    /// @param item  the path or URI from the client; kept as a URI for uridecodebin
    UriSimplePlayerImpl(const QString& item, const QString& itemToken, const QString& outputDevice,
                        UriSimplePlayer* frontObject);
    ~UriSimplePlayerImpl() override;

    bool initPipeline(GstElement* bin) override;

    /// Seeks back to the start of the item. @return false if no element could seek
    bool restartPlayback() override;

    /// Handler of "pad-added". Runs on a GStreamer streaming thread, as does newPadCallback().
    static void staticNewPadCallback(GstElement* element, GstPad* pad, void* data);
    /// Links a decoded audio pad to the output chain.
    void newPadCallback(GstPad* pad);

protected:
    UriSimplePlayer* uriPlayer; ///< the same object as `player`; not owned
    // Owned by the pipeline once they are added to it. Written before the pipeline leaves the NULL
    // state, so that streaming threads may read them. After a release they dangle: only callbacks
    // of the pipeline use them, and the next build sets them again.
    GstElement* uriDecodeBin = nullptr;
    GstElement* queue = nullptr;
    GstElement* sink = nullptr;
    QString uri; ///< empty if the file does not exist; never changes
};

#endif
