#include "simplePlayer/StreamSimplePlayer.h"
#include "simplePlayer/AudioOutputChain.h"
#include "simplePlayer/GstOwners_p.h"
#include "simplePlayer/Logging_p.h"
#include "simplePlayer/StreamSimplePlayer_p.h"

#include "core/KovaNamedPipe.h"
#include "core/kova.h"

#include <QtCore/QSocketNotifier>
#include <QtCore/QVector>

#include <gst/app/gstappsrc.h>

#include <cstring>

static log4cplus::Logger logger = log4cplus::Logger::getInstance("SimplePlayer");

/// The largest block that is read at once, in bytes.
static const int blockSize = 4096;

/// How many bytes the appsrc queues before it disables the reader. The limit is far below one
/// block, so that a block which is pushed while an earlier one is still queued disables the reader.
static const guint64 queueLimit = 1000;

// ---- StreamSimplePlayer ------------------------------------------------------------------------

StreamSimplePlayer::StreamSimplePlayer(const QString& pipeName, const QString& caps,
                                       const QString& token, const QString& device, QObject* parent)
    : SimplePlayer(parent), engine(new StreamSimplePlayerImpl(pipeName, caps, token, device, this))
{
}

StreamSimplePlayer::~StreamSimplePlayer() = default;

bool StreamSimplePlayer::startPlayback()
{
    return engine->startPlayback();
}

bool StreamSimplePlayer::pausePlayback()
{
    return engine->pausePlayback();
}

bool StreamSimplePlayer::stopPlayback()
{
    return engine->stopPlayback();
}

// ---- StreamSimplePlayerImpl: lifecycle ---------------------------------------------------------

StreamSimplePlayerImpl::StreamSimplePlayerImpl(const QString& pipePath, const QString& capsText,
                                               const QString& itemToken,
                                               const QString& outputDevice,
                                               StreamSimplePlayer* frontObject)
    : SimplePlayerImpl(itemToken, outputDevice, frontObject), streamPlayer(frontObject),
      caps(capsText), pipeName(pipePath)
{
    LOG_ENTER(TRACE, "constructor ", token);
    initReadPipe();
    LOG_LEAVE(TRACE, "constructor ", token);
}

StreamSimplePlayerImpl::~StreamSimplePlayerImpl()
{
    LOG_ENTER(TRACE, "destructor ", token);
    releaseGstPipeline();
    closeReadPipe();
    LOG_LEAVE(TRACE, "destructor ", token);
}

bool StreamSimplePlayerImpl::stopPlayback()
{
    LOG_ENTER(TRACE, "token: ", token);
    const bool stopped = SimplePlayerImpl::stopPlayback();
    closeReadPipe();
    LOG_LEAVE(TRACE, "token: ", token);
    return stopped;
}

// ---- StreamSimplePlayerImpl: pipeline ----------------------------------------------------------

bool StreamSimplePlayerImpl::initPipeline(GstElement* bin)
{
    LOG_ENTER(TRACE, "token: ", token);
    if (!bin) {
        LOG_LINE(ERROR, "Failed to create pipeline");
        return false;
    }
    if (!makeSource()) {
        return false;
    }
    decodebin = makeElement("decodebin", "DecodeBin");
    if (!decodebin) {
        return false;
    }
    g_signal_connect(decodebin, "pad-added", G_CALLBACK(staticNewPadCallback), this);

    AudioOutputChain chain(queue, sink);
    if (!chain.makeConverters()) {
        return false;
    }
    // A missing identity is not an error of its own: the null pointer ends the list of elements
    // that are added to the bin, and the link below fails.
    GstElement* identity = gst_element_factory_make("identity", "Identity");
    if (identity) {
        g_object_set(identity, "silent", FALSE, nullptr);
    }
    if (!chain.makeSink(device)) {
        return false;
    }
    gst_bin_add_many(GST_BIN(bin), appsrc, identity, decodebin, queue, chain.audioconvert,
                     chain.audioresample, sink, nullptr);
    if (!identity || !gst_element_link_many(appsrc, identity, decodebin, nullptr)) {
        LOG_LINE(ERROR, "Failed to link appsrc, identity and decodebin");
        return false;
    }
    if (!chain.link()) {
        LOG_LINE(ERROR, "Failed to link rest of the elements");
        return false;
    }
    LOG_LEAVE(TRACE, "token: ", token);
    return true;
}

bool StreamSimplePlayerImpl::makeSource()
{
    appsrc = makeElement("appsrc", "AppSrc");
    if (!appsrc) {
        return false;
    }
    gst_app_src_set_stream_type(GST_APP_SRC(appsrc), GST_APP_STREAM_TYPE_STREAM);
    g_signal_connect(appsrc, "need-data", G_CALLBACK(staticStartFeed), this);
    g_signal_connect(appsrc, "enough-data", G_CALLBACK(staticStopFeed), this);
    if (!caps.isEmpty()) {
        // Invalid text gives null caps, which leave the source without caps.
        const gst::Caps described(gst_caps_from_string(caps.toLocal8Bit().constData()));
        gst_app_src_set_caps(GST_APP_SRC(appsrc), described.get());
    }
    // The format is TIME although the buffers carry no timestamps. It is the segment format that
    // decoders receive; do not change it to BYTES.
    g_object_set(appsrc, "format", GST_FORMAT_TIME, "max-bytes", queueLimit, nullptr);
    return true;
}

void StreamSimplePlayerImpl::staticNewPadCallback(GstElement* /*element*/, GstPad* pad, void* self)
{
    static_cast<StreamSimplePlayerImpl*>(self)->newPadCallback(pad);
}

void StreamSimplePlayerImpl::newPadCallback(GstPad* pad)
{
    LOG_ENTER(TRACE, "token: ", token);
    // The text names uridecodebin although the decoder is a decodebin: log texts are fixed.
    if (linkDecodedPad(pad, queue, "Skipping non-audio pad from uridecodebin") !=
        DecodedPad::AlreadyLinked) {
        LOG_LEAVE(TRACE, "token: ", token);
    }
}

void StreamSimplePlayerImpl::staticStartFeed(GstElement* /*source*/, guint /*length*/,
                                             StreamSimplePlayerImpl* self)
{
    QMetaObject::invokeMethod(self, "on_receiveNewData", Qt::AutoConnection, Q_ARG(bool, true));
}

void StreamSimplePlayerImpl::staticStopFeed(GstElement* /*source*/, StreamSimplePlayerImpl* self)
{
    QMetaObject::invokeMethod(self, "on_receiveNewData", Qt::AutoConnection, Q_ARG(bool, false));
}

// ---- StreamSimplePlayerImpl: reader ------------------------------------------------------------

void StreamSimplePlayerImpl::initReadPipe()
{
    LOG_ENTER(TRACE, "Open named pipe for reading ", pipeName, " token: ", token);
    pipe = new KovaNamedPipe(pipeName, 1, this, false);
    pipe->setNonBlock(true);
    pipe->create();
    if (!pipe->open(false)) {
        // Nothing exits, despite the fixed text: the player continues without a pipe.
        LOG_LINE(ERROR, "Failed to create and open named pipe, exiting", token);
        pipe->deleteLater();
        pipe = nullptr;
        return;
    }
    kova::connect(pipe->readNotifier(), &QSocketNotifier::activated, this,
                  &StreamSimplePlayerImpl::on_readPipeNotifier_activated, Qt::AutoConnection);
    pipe->readNotifier()->setEnabled(true);
    LOG_LEAVE(TRACE, "token: ", token);
}

void StreamSimplePlayerImpl::closeReadPipe()
{
    LOG_ENTER(TRACE, "token: ", token);
    if (pipe) {
        pipe->close();
        // Deleted later, because this may run in the slot of the pipe's notifier.
        pipe->deleteLater();
        pipe = nullptr;
    }
    LOG_LEAVE(TRACE, "token: ", token);
}

void StreamSimplePlayerImpl::on_readPipeNotifier_activated(int sock)
{
    LOG_ENTER(TRACE, "sock: ", sock, " token: ", token);
    if (!pipelineInitialized()) {
        // Data that arrives before the start, or after a release, closes the pipe permanently.
        LOG_LINE(TRACE, "Gst pipeline was removed, not processing data");
        closeReadPipe();
        LOG_LEAVE(TRACE, "token ", token);
        return;
    }
    if (!pipe) {
        LOG_LINE(TRACE, "Named read pipeline was removed, not processing data");
        LOG_LEAVE(TRACE, "token ", token);
        return;
    }
    // One read per activation, not a loop: remaining data activates the notifier again.
    QVector<char> block(blockSize);
    const int size = pipe->read(block.data(), block.size());
    if (size <= 0) {
        // A failed read is treated like the end of the data: both end the stream.
        LOG_LINE(DEBUG, "read: ", size, ", closing pipe t:", token);
        endStream();
        closeReadPipe();
    } else if (!pushBlock(block.constData(), size)) {
        releaseGstPipeline();
        reportPlaybackEnded(QStringLiteral("Failed to push buffer"));
        closeReadPipe();
    }
    LOG_LEAVE(TRACE, "token: ", token);
}

bool StreamSimplePlayerImpl::pushBlock(const char* block, int size)
{
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, static_cast<gsize>(size), nullptr);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    std::memcpy(map.data, block, static_cast<std::size_t>(size));
    // The push consumes a reference even if it refuses the buffer, and the unmap follows the push.
    // The additional reference keeps the memory until then. It is taken after the map, because a
    // shared buffer cannot be mapped for writing.
    gst_buffer_ref(buffer);
    const GstFlowReturn ret = gst_app_src_push_buffer(GST_APP_SRC(appsrc), buffer);
    gst_buffer_unmap(buffer, &map);
    gst_buffer_unref(buffer);
    LOG_LINE(TRACE, "Pushed buffer of size ", size, ", ret: ", int(ret));
    if (ret != GST_FLOW_OK) {
        LOG_LINE(ERROR, "Unable to push buffer, ret: ", int(ret));
        return false;
    }
    return true;
}

void StreamSimplePlayerImpl::endStream()
{
    if (gst_app_src_end_of_stream(GST_APP_SRC(appsrc)) != GST_FLOW_OK) {
        LOG_LINE(ERROR, "Failed to flush pipeline");
        releaseGstPipeline();
        reportPlaybackEnded(QStringLiteral("Failed to flush pipeline"));
    }
}

void StreamSimplePlayerImpl::on_receiveNewData(bool enable)
{
    LOG_ENTER(TRACE, "read: ", enable, " token: ", token);
    if (pipe) {
        pipe->readNotifier()->setEnabled(enable);
    }
    LOG_LEAVE(TRACE, "token: ", token);
}
