#include "simplePlayer/UriSimplePlayer.h"
#include "simplePlayer/AudioOutputChain.h"
#include "simplePlayer/Logging_p.h"
#include "simplePlayer/UriSimplePlayer_p.h"

#include <QtCore/QFileInfo>

static log4cplus::Logger logger = log4cplus::Logger::getInstance("SimplePlayer");

// ---- UriSimplePlayer ---------------------------------------------------------------------------

UriSimplePlayer::UriSimplePlayer(const QString& uri, const QString& token, const QString& device,
                                 QObject* parent)
    : SimplePlayer(parent), engine(new UriSimplePlayerImpl(uri, token, device, this))
{
}

UriSimplePlayer::~UriSimplePlayer() = default;

bool UriSimplePlayer::startPlayback()
{
    return engine->startPlayback();
}

bool UriSimplePlayer::pausePlayback()
{
    return engine->pausePlayback();
}

bool UriSimplePlayer::stopPlayback()
{
    return engine->stopPlayback();
}

// ---- UriSimplePlayerImpl -----------------------------------------------------------------------

/// Returns the URI of an item, or a null string if it names a local file that does not exist.
/// Schemes are compared in lower case only, and nothing is decoded or escaped, because clients rely
/// on their names being looked up literally.
static QString makeUriFromPath(const QString& path)
{
    const QLatin1String fileScheme("file://");

    LOG_ENTER(TRACE, "path: ", path);
    if (path.startsWith(QLatin1String("http://")) || path.startsWith(QLatin1String("https://"))) {
        LOG_LEAVE(TRACE, "Web URI: ", path);
        return path;
    }
    const QFileInfo file(path.startsWith(fileScheme) ? path.mid(fileScheme.size()) : path);
    if (!file.exists()) {
        LOG_LINE(ERROR, "File '", path, "' does not exist");
        return QString();
    }
    QString uri = fileScheme + file.absoluteFilePath();
    LOG_LEAVE(TRACE, "File URI: ", uri);
    return uri;
}

UriSimplePlayerImpl::UriSimplePlayerImpl(const QString& item, const QString& itemToken,
                                         const QString& outputDevice, UriSimplePlayer* frontObject)
    : SimplePlayerImpl(itemToken, outputDevice, frontObject), uriPlayer(frontObject),
      uri(makeUriFromPath(item))
{
}

UriSimplePlayerImpl::~UriSimplePlayerImpl()
{
    // Streaming threads read members of this class until the pipeline is released.
    LOG_ENTER(TRACE, "Stopping playback at destructor");
    releaseGstPipeline();
    LOG_LEAVE(TRACE, "");
}

bool UriSimplePlayerImpl::initPipeline(GstElement* bin)
{
    LOG_ENTER(TRACE, "token: ", token);
    if (!bin) {
        LOG_LINE(ERROR, "Failed to create pipeline");
        return false;
    }
    if (uri.isEmpty()) {
        LOG_LINE(ERROR, "Cannot initialize as uri is empty");
        return false;
    }
    uriDecodeBin = makeElement("uridecodebin", "UriDecodeBin");
    if (!uriDecodeBin) {
        return false;
    }
    g_object_set(uriDecodeBin, "uri", uri.toUtf8().constData(), nullptr);
    g_signal_connect(uriDecodeBin, "pad-added", G_CALLBACK(staticNewPadCallback), this);

    AudioOutputChain chain(queue, sink);
    if (!chain.make(device)) {
        return false;
    }
    gst_bin_add_many(GST_BIN(bin), uriDecodeBin, queue, chain.audioconvert, chain.audioresample,
                     sink, nullptr);
    // The decoder is linked to the queue later, pad by pad, by newPadCallback().
    if (!chain.link()) {
        LOG_LINE(ERROR, "Failed to link gst elements (uri player)");
        return false;
    }
    LOG_LEAVE(TRACE, "token: ", token);
    return true;
}

void UriSimplePlayerImpl::staticNewPadCallback(GstElement* /*element*/, GstPad* pad, void* data)
{
    static_cast<UriSimplePlayerImpl*>(data)->newPadCallback(pad);
}

void UriSimplePlayerImpl::newPadCallback(GstPad* pad)
{
    linkDecodedPad(pad, queue,
                   "Skipping non-audio pad from uridecodebin - check the source content why ", uri);
}

bool UriSimplePlayerImpl::restartPlayback()
{
    // At DEBUG, unlike the other operations of this class, so that a log at DEBUG shows each pass.
    LOG_ENTER(DEBUG, "Seeking back to beginning");
    GstEvent* seek =
        gst_event_new_seek(1.0, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET, 0,
                           GST_SEEK_TYPE_NONE, static_cast<gint64>(GST_CLOCK_TIME_NONE));
    // The target is the decoder, not the pipeline, which would send the seek through its sinks. It
    // is not null, because a stream from it has just ended.
    if (!gst_element_send_event(uriDecodeBin, seek)) {
        LOG_LINE(ERROR, "Failed to seek to beginning");
        return false;
    }
    LOG_LEAVE(DEBUG, "");
    return true;
}
