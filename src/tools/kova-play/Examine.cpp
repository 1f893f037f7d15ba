#include "Examine.h"

#include "Caps.h"
#include "Item.h"
#include "Missing.h"
#include "Owners.h"

#include <QtCore/QFileInfo>

namespace {

/// How long an item may take to show its format. After 15 seconds GStreamer gives up itself.
constexpr GstClockTime patience = 10 * GST_SECOND;

QString uriOf(const QString& item)
{
    const QString path = pathOfItem(item);
    if (path.isEmpty()) {
        return item;
    }
    const QByteArray absolute = files::encoded(QFileInfo(path).absoluteFilePath());
    const gst::Text uri(gst_filename_to_uri(absolute.constData(), nullptr));
    return QString::fromUtf8(uri.get());
}

/// Why an item cannot be opened.
Advice obstacleOf(const UriItem& item)
{
    const Advice obstacle = item.obstacle();
    return obstacle.reason.isEmpty() ? item.adviceOnFailedStart() : obstacle;
}

bool isAudio(GstPad* pad)
{
    const gst::Caps caps(gst_pad_query_caps(pad, nullptr));
    return gst_caps_get_size(caps.get()) > 0 &&
           g_str_has_prefix(gst_structure_get_name(gst_caps_get_structure(caps.get(), 0)),
                            "audio/");
}

/// A pipeline that decodes an item up to the first sound.
class Decoding
{
public:
    explicit Decoding(const QString& uri);
    ~Decoding();
    Decoding(const Decoding&) = delete;
    Decoding& operator=(const Decoding&) = delete;

    /// Runs it and fills in what it finds.
    /// @return the format of the first sound; null when there is none
    gst::Caps run(Examination& examination);

private:
    // On streaming threads.
    static void onPad(GstElement* source, GstPad* pad, gpointer decoding);
    static void onNoMorePads(GstElement* source, gpointer decoding);
    static void onElement(GstBin* pipeline, GstBin* bin, GstElement* element, gpointer decoding);

    bool handle(GstMessage* message, Examination& examination);
    void blameMissing(Examination& examination) const;

    gst::Element pipeline;
    GstElement* sink; ///< the pipeline's
    QStringList elements;
    QStringList type;
    Missing missing;
};

Decoding::Decoding(const QString& uri)
    : pipeline(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)))),
      sink(gst_element_factory_make("fakesink", nullptr))
{
    g_signal_connect(pipeline.get(), "deep-element-added", G_CALLBACK(onElement), this);
    GstElement* source = gst_element_factory_make("uridecodebin", nullptr);
    if (!source || !sink) {
        return; // there is a line for each missing element already
    }
    g_object_set(source, "uri", uri.toUtf8().constData(), nullptr);
    g_object_set(sink, "sync", TRUE, nullptr);
    g_signal_connect(source, "pad-added", G_CALLBACK(onPad), this);
    g_signal_connect(source, "no-more-pads", G_CALLBACK(onNoMorePads), this);
    gst_bin_add_many(GST_BIN(pipeline.get()), source, sink, nullptr);
}

Decoding::~Decoding()
{
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

void Decoding::onPad(GstElement* /*source*/, GstPad* pad, gpointer decoding)
{
    const gst::Pad sinkPad(
        gst_element_get_static_pad(static_cast<Decoding*>(decoding)->sink, "sink"));
    if (isAudio(pad) && !gst_pad_is_linked(sinkPad.get())) {
        gst_pad_link(pad, sinkPad.get());
    }
}

void Decoding::onNoMorePads(GstElement* source, gpointer decoding)
{
    const gst::Pad sinkPad(
        gst_element_get_static_pad(static_cast<Decoding*>(decoding)->sink, "sink"));
    if (!gst_pad_is_linked(sinkPad.get())) {
        GstStructure* noAudio = gst_structure_new_empty("no-audio");
        gst_element_post_message(source, gst_message_new_application(GST_OBJECT(source), noAudio));
    }
}

void Decoding::onElement(GstBin* /*pipeline*/, GstBin* /*bin*/, GstElement* element,
                         gpointer decoding)
{
    GstElementFactory* factory = gst_element_get_factory(element);
    if (!factory) {
        return;
    }
    const gchar* kind = gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS);
    for (const char* shown : {"Source/", "Demux", "Parser", "Decoder/"}) {
        if (strstr(kind, shown) && !GST_IS_BIN(element)) {
            static_cast<Decoding*>(decoding)->elements
                << QString::fromUtf8(GST_OBJECT_NAME(factory));
            return;
        }
    }
}

gst::Caps Decoding::run(Examination& examination)
{
    const gst::Bus bus(gst_element_get_bus(pipeline.get()));
    gst_element_set_state(pipeline.get(), GST_STATE_PAUSED);
    const auto interesting =
        static_cast<GstMessageType>(GST_MESSAGE_ELEMENT | GST_MESSAGE_ERROR | GST_MESSAGE_TAG |
                                    GST_MESSAGE_ASYNC_DONE | GST_MESSAGE_APPLICATION);
    bool goesOn = true;
    while (goesOn) {
        const gst::Message message(gst_bus_timed_pop_filtered(bus.get(), patience, interesting));
        if (!message) {
            examination.problem = "nothing was decoded within 10 seconds";
        }
        goesOn = message && handle(message.get(), examination);
    }
    const gst::Pad pad(gst_element_get_static_pad(sink, "sink"));
    gst::Caps decoded(gst_pad_get_current_caps(pad.get()));
    gst_element_set_state(pipeline.get(), GST_STATE_NULL); // no thread adds elements any more
    examination.elements = elements;
    type.removeDuplicates();
    examination.type = type.join(", ");
    return decoded;
}

/// @return whether there is more to wait for
bool Decoding::handle(GstMessage* message, Examination& examination)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ELEMENT:
        missing.note(message);
        return true;
    case GST_MESSAGE_TAG: {
        GstTagList* tags = nullptr;
        gst_message_parse_tag(message, &tags);
        for (const char* tag : {GST_TAG_CONTAINER_FORMAT, GST_TAG_AUDIO_CODEC}) {
            gchar* value = nullptr;
            if (gst_tag_list_get_string(tags, tag, &value)) {
                type << QString::fromUtf8(gst::Text(value).get());
            }
        }
        gst_tag_list_unref(tags);
        return true;
    }
    case GST_MESSAGE_ERROR: {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        examination.problem = QString::fromUtf8(gst::Error(error)->message);
        missing.note(message);
        if (missing.isCause()) {
            blameMissing(examination);
        }
        return false;
    }
    case GST_MESSAGE_APPLICATION:
        examination.problem = "there is no sound in it";
        if (!missing.isEmpty()) {
            blameMissing(examination);
        }
        return false;
    default:
        return false; // the first sound is there
    }
}

void Decoding::blameMissing(Examination& examination) const
{
    examination.problem = missing.reason();
    examination.hint = missing.hint();
}

/// How a device takes a decoded format.
QString fitOf(const GstCaps* decoded, const QString& device)
{
    const gst::Element sink(gst_element_factory_make("alsasink", nullptr));
    if (!sink) {
        return QString();
    }
    gst_object_ref_sink(sink.get());
    g_object_set(sink.get(), "device", device.toUtf8().constData(), nullptr);
    QString fit;
    if (gst_element_set_state(sink.get(), GST_STATE_READY) == GST_STATE_CHANGE_FAILURE) {
        fit = "the device does not open";
    } else {
        const gst::Pad pad(gst_element_get_static_pad(sink.get(), "sink"));
        const gst::Caps taken(gst_pad_query_caps(pad.get(), nullptr));
        fit = gst_caps_can_intersect(decoded, taken.get()) ? "the device takes it as it is"
                                                           : "it is converted for the device";
    }
    gst_element_set_state(sink.get(), GST_STATE_NULL);
    return fit;
}

} // namespace

Examination examine(const QString& item, const QString& device)
{
    Examination examination;
    const Advice obstacle = obstacleOf(UriItem(item));
    if (!obstacle.reason.isEmpty()) {
        examination.problem = obstacle.reason;
        examination.hint = obstacle.hint;
        return examination;
    }
    const gst::Caps decoded = Decoding(uriOf(item)).run(examination);
    if (decoded) {
        examination.sound = caps::inWords(decoded.get());
        examination.fit = fitOf(decoded.get(), device);
    }
    return examination;
}
