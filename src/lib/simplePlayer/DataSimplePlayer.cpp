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
    // Streaming threads use `data` and the front object until the pipeline is in NULL. First, they
    // must not emit signals any more, because the front object is partly destroyed. Then they have
    // to end, before the members are destroyed. The base class releases the pipeline and logs that;
    // only the state is set here, so that the log keeps its order.
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
    // No caps and no format: the decoder detects the type of the data. The queue of the source may
    // hold the whole item, which needs no memory, because all chunks are views of the same array.
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
    // The text names uridecodebin although the decoder is a decodebin: log texts are fixed.
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
    gst_buffer_unref(buffer); // the signal took a reference of its own
    LOG_LINE(TRACE, "Pushed buffer of size ", length, " offset ", offset, " , ret: ", int(ret));
    if (ret == GST_FLOW_OK) {
        offset += length;
        return;
    }
    LOG_LINE(ERROR, "Unable to push buffer, ret: ", int(ret));
    // Emitted directly, from this thread: the outcome of the player is reported separately by the
    // cause of the refusal, and the guard of the base class would drop one of the two.
    if (!closing) {
        Q_EMIT dataPlayer->playbackErrorReported(token, QStringLiteral("Failed to push buffer"));
    }
}

void DataSimplePlayerImpl::endStream()
{
    GstFlowReturn ret = GST_FLOW_OK;
    g_signal_emit_by_name(appsrc, "end-of-stream", &ret);
    LOG_LINE(DEBUG, "EOS sent with ret", int(ret)); // no blank in between
    // The array is never filled again, so that an ended player holds no memory of its item.
    data.clear();
}

/// Drops the reference that a chunk holds. Runs on any thread, also after the engine's destruction.
static void releaseArray(gpointer array)
{
    const QByteArray last(QByteArrayDataPtr{static_cast<QByteArrayData*>(array)}); // takes it over
}

/// Returns a chunk at the current offset: a read-only view of the array, which is freed with its
/// last chunk.
GstBuffer* DataSimplePlayerImpl::makeBuffer(guint length)
{
    if (!detached) {
        data.detach(); // the only copy, made if the caller still holds the array
        detached = true;
    }
    // A chunk holds a reference in the array's own count, so that nothing is allocated for it. As
    // long as chunks exist, data() instead of constData() would copy the array each time.
    data.data_ptr()->ref.ref();
    GstMemory* memory =
        gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY, const_cast<char*>(data.constData()),
                               static_cast<gsize>(data.size()), static_cast<gsize>(offset), length,
                               data.data_ptr(), releaseArray);
    GstBuffer* buffer = gst_buffer_new();
    gst_buffer_append_memory(buffer, memory);
    GST_BUFFER_OFFSET(buffer) = offset;
    GST_BUFFER_OFFSET_END(buffer) = length; // the length, not the end position, by convention
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
    // Not checked: after a seek past the end, the next request ends the stream.
    offset = pos;
    return TRUE;
}
