#include "simplePlayer/DataSimplePlayer.h"
#include "simplePlayer/AudioOutputChain.h"
#include "simplePlayer/DataSimplePlayer_p.h"
#include "simplePlayer/Logging_p.h"

#include <gst/app/gstappsrc.h>

static log4cplus::Logger logger = log4cplus::Logger::getInstance("SimplePlayer");

// ---- DataSimplePlayer --------------------------------------------------------------------------

DataSimplePlayer::DataSimplePlayer(const QByteArray& data, const QString& token,
                                   const QString& device, QObject* parent)
    : SimplePlayer(parent), engine(new DataSimplePlayerImpl(data, token, device, this))
{
}

DataSimplePlayer::~DataSimplePlayer() = default;

bool DataSimplePlayer::startPlayback()
{
    return engine->startPlayback();
}

bool DataSimplePlayer::pausePlayback()
{
    return engine->pausePlayback();
}

bool DataSimplePlayer::stopPlayback()
{
    return engine->stopPlayback();
}

// ---- DataSimplePlayerImpl ----------------------------------------------------------------------

DataSimplePlayerImpl::DataSimplePlayerImpl(const QByteArray& bytes, const QString& itemToken,
                                           const QString& outputDevice,
                                           DataSimplePlayer* frontObject)
    : SimplePlayerImpl(itemToken, outputDevice, frontObject), dataPlayer(frontObject), data(bytes)
{
    if (data.isEmpty()) {
        LOG_LINE(ERROR, "Empty data provided for playback, the player will not play");
    }
}

DataSimplePlayerImpl::~DataSimplePlayerImpl()
{
    // Streaming threads use `data` and the front object until the pipeline is in NULL. First no
    // signal may come from them any more, then they have to end, and only then the members go.
    // That the front object is half gone by now does no harm: pushes are refused while a pipeline
    // goes down, and it goes down only on this thread.
    // The base logs and does the release itself; this must not.
    closing = true;
    if (pipeline) {
        gst_element_set_state(pipeline, GST_STATE_NULL);
    }
}

bool DataSimplePlayerImpl::initPipeline(GstElement* bin)
{
    LOG_ENTER(TRACE, "token: ", token);
    if (!bin) {
        LOG_LINE(ERROR, "No pipeline to initialize player to");
        return false;
    }
    appsrc = makeElement("appsrc", "AppSrc");
    if (!appsrc) {
        return false;
    }
    // No caps and no format: the decoder finds out what the bytes are. The queue of the source may
    // hold the whole item, which costs nothing, as all chunks are views of the one array.
    gst_app_src_set_stream_type(GST_APP_SRC(appsrc), GST_APP_STREAM_TYPE_RANDOM_ACCESS);
    gst_app_src_set_size(GST_APP_SRC(appsrc), data.size());
    gst_app_src_set_max_bytes(GST_APP_SRC(appsrc), static_cast<guint64>(data.size()));
    g_signal_connect(appsrc, "need-data", G_CALLBACK(staticFeedDataCallback), this);
    g_signal_connect(appsrc, "seek-data", G_CALLBACK(staticSeekDataCallback), this);

    decodebin = makeElement("decodebin", "DecodeBin");
    if (!decodebin) {
        return false;
    }
    g_signal_connect(decodebin, "pad-added", G_CALLBACK(staticNewPadCallback), this);

    AudioOutputChain chain(queue, sink);
    if (!chain.make(device)) {
        return false;
    }
    gst_bin_add_many(GST_BIN(bin), appsrc, decodebin, queue, chain.audioconvert,
                     chain.audioresample, sink, nullptr);
    if (!gst_element_link(appsrc, decodebin)) {
        LOG_LINE(ERROR, "Failed to link appsrc and decodebin");
        return false;
    }
    if (!chain.link()) {
        LOG_LINE(ERROR, "Failed to link rest of the elements");
        return false;
    }
    LOG_LEAVE(TRACE, "token: ", token);
    return true;
}

void DataSimplePlayerImpl::staticNewPadCallback(GstElement* /*element*/, GstPad* pad, void* data)
{
    static_cast<DataSimplePlayerImpl*>(data)->newPadCallback(pad);
}

void DataSimplePlayerImpl::newPadCallback(GstPad* pad)
{
    LOG_ENTER(DEBUG, "token: ", token);
    // The text names uridecodebin although a decodebin stands here: that is its wording.
    if (linkDecodedPad(pad, queue, "Skipping non-audio pad from uridecodebin") ==
        DecodedPad::Offered) {
        LOG_LEAVE(DEBUG, "token: ", token);
    }
}

void DataSimplePlayerImpl::staticFeedDataCallback(GstElement* /*appsrc*/, guint length,
                                                  DataSimplePlayerImpl* self)
{
    self->feedDataCallback(length);
}

void DataSimplePlayerImpl::feedDataCallback(guint length)
{
    LOG_ENTER(TRACE, "size: ", length, " overall ", data.size());
    const auto size = static_cast<quint64>(data.size());
    if (offset >= size) {
        endStream();
        return;
    }
    if (length > size - offset) {
        length = static_cast<guint>(size - offset);
        LOG_LINE(DEBUG, "Cropping to size ", length);
    }

    GstBuffer* buffer = makeBuffer(length);
    GstFlowReturn ret = GST_FLOW_OK;
    g_signal_emit_by_name(appsrc, "push-buffer", buffer, &ret);
    gst_buffer_unref(buffer); // the signal has taken a reference of its own
    LOG_LINE(TRACE, "Pushed buffer of size ", length, " offset ", offset, " , ret: ", int(ret));
    if (ret == GST_FLOW_OK) {
        offset += length;
        return;
    }
    LOG_LINE(ERROR, "Unable to push buffer, ret: ", int(ret));
    // Past the reporting of the base and its once-only guard, on purpose, and from this thread.
    if (!closing) {
        Q_EMIT dataPlayer->playbackErrorReported(token, QStringLiteral("Failed to push buffer"));
    }
}

void DataSimplePlayerImpl::endStream()
{
    GstFlowReturn ret = GST_FLOW_OK;
    g_signal_emit_by_name(appsrc, "end-of-stream", &ret);
    LOG_LINE(DEBUG, "EOS sent with ret", int(ret)); // no blank in between
    // For good: nothing fills the array again, so the item plays at most once. This is intended.
    data.clear();
}

/// Gives back the reference that a chunk holds. Runs on any thread, also when the engine is gone.
static void releaseArray(gpointer array)
{
    const QByteArray last(QByteArrayDataPtr{static_cast<QByteArrayData*>(array)}); // takes it over
}

/// A chunk at the current offset: a read-only view of the array, which lives until the last chunk
/// is gone.
GstBuffer* DataSimplePlayerImpl::makeBuffer(guint length)
{
    if (!detached) {
        data.detach(); // the one copy, and only if somebody else still holds the array
        detached = true;
    }
    // A chunk holds a reference of the array's own count, so that nothing is allocated for it. With
    // chunks alive, asking for writable bytes would copy the array again and again.
    data.data_ptr()->ref.ref();
    GstMemory* memory =
        gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY, const_cast<char*>(data.constData()),
                               static_cast<gsize>(data.size()), static_cast<gsize>(offset), length,
                               data.data_ptr(), releaseArray);
    GstBuffer* buffer = gst_buffer_new();
    gst_buffer_append_memory(buffer, memory);
    GST_BUFFER_OFFSET(buffer) = offset;
    GST_BUFFER_OFFSET_END(buffer) = length; // the chunk's length and not its end, on purpose
    return buffer;
}

gboolean DataSimplePlayerImpl::staticSeekDataCallback(GstElement* /*appsrc*/, quint64 pos,
                                                      DataSimplePlayerImpl* self)
{
    return self->seekDataCallback(pos);
}

gboolean DataSimplePlayerImpl::seekDataCallback(quint64 pos)
{
    LOG_ENTER(TRACE, "pos: ", pos);
    // Unchecked: behind the end, the next request ends the stream.
    offset = pos;
    return TRUE;
}
