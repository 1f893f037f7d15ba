#ifndef URI_SIMPLE_PLAYER_P_H
#define URI_SIMPLE_PLAYER_P_H

#include "simplePlayer/SimplePlayerInterface_p.h"

class UriSimplePlayer;

/// The engine that plays a URI: uridecodebin ⇢ queue → audioconvert → audioresample → alsasink.
class UriSimplePlayerImpl : public SimplePlayerImpl
{
    Q_OBJECT

public:
    /// @param item  a path or URI as the client gave it; kept in the form that uridecodebin takes
    UriSimplePlayerImpl(const QString& item, const QString& itemToken, const QString& outputDevice,
                        UriSimplePlayer* frontObject);
    ~UriSimplePlayerImpl() override;

    bool initPipeline(GstElement* bin) override;

    /// Seeks the item back to its start. @return false when no element could seek
    bool restartPlayback() override;

    /// Handler of "pad-added". Runs on a GStreamer streaming thread, as does newPadCallback().
    static void staticNewPadCallback(GstElement* element, GstPad* pad, void* data);
    /// Links a decoded audio pad to the output chain.
    void newPadCallback(GstPad* pad);

protected:
    UriSimplePlayer* uriPlayer; ///< the same object as `player`; not owned
    // Owned by the pipeline once it holds them; written before it leaves the NULL state, so that
    // streaming threads may read them. They dangle once the pipeline is released: only what the
    // pipeline itself calls (its pads, its bus) uses them, and the next build makes new ones.
    GstElement* uriDecodeBin = nullptr;
    GstElement* queue = nullptr;
    GstElement* sink = nullptr;
    QString uri; ///< empty when the named file does not exist; never changes
};

#endif
