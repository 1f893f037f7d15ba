// Any messages on the bus: of any type, from any source, with any structure.
//
// An input is the loop flag and a sequence of messages, each two numbers (type, source) and two
// texts.

#include "fuzz/FuzzProcess.h"
#include "kit/PlayerProbe.h"
#include "unit/TestEngine.h"

#include <gst/gst.h>

namespace {

GstState stateOf(int number)
{
    return static_cast<GstState>(number % 5);
}

/// The structure that a text describes; an empty one if it describes none.
GstStructure* structureOf(const QByteArray& text)
{
    GstStructure* structure = gst_structure_from_string(text.constData(), nullptr);
    return structure ? structure : gst_structure_new_empty("nothing");
}

using ErrorMaker = GstMessage* (*)(GstObject*, GError*, const gchar*);

GstMessage* makeError(ErrorMaker make, GstObject* source, int code, const QByteArray& text,
                      const QByteArray& debug)
{
    GError* error = g_error_new_literal(GST_STREAM_ERROR, code, text.constData());
    GstMessage* message = make(source, error, debug.constData());
    g_error_free(error);
    return message;
}

/// A message that the engine ignores, or one that ends the stream.
GstMessage* anyOther(int bit, GstObject* source, const QByteArray& text)
{
    // Elements make errors and state changes with functions of GStreamer that fill in their fields.
    const auto type = static_cast<GstMessageType>(1U << (bit % 30));
    const bool hasFields = (type & (GST_MESSAGE_ERROR | GST_MESSAGE_STATE_CHANGED)) != 0;
    return gst_message_new_custom(hasFields ? GST_MESSAGE_APPLICATION : type, source,
                                  structureOf(text));
}

GstMessage* nextMessage(FuzzedDataProvider& input, GstObject* pipeline, GstObject* element)
{
    const int type = input.ConsumeIntegralInRange(0, 5);
    const int from = input.ConsumeIntegral<uint8_t>();
    GstObject* source = from % 3 == 0 ? pipeline : from % 3 == 1 ? element : nullptr;
    const QByteArray text = consumeText(input);
    const QByteArray more = consumeText(input);
    switch (type) {
    case 0:
        return makeError(gst_message_new_error, source, from, text, more);
    case 1: // without an error, or with other fields
        return gst_message_new_custom(GST_MESSAGE_ERROR, source, structureOf(text));
    case 2:
        return gst_message_new_state_changed(source, stateOf(from), stateOf(from / 5),
                                             stateOf(from / 25));
    case 3:
        return gst_message_new_eos(source);
    case 4:
        return makeError(gst_message_new_warning, source, from, text, more);
    default:
        return anyOther(from, source, text);
    }
}

} // namespace

FUZZ_TARGET
{
    FuzzedDataProvider input(bytes, size);
    TestPlayer player;
    Outcomes outcomes(&player);
    player.loop = input.ConsumeBool();
    player.engine->startPlayback();
    GstElement* element = gst_element_factory_make("fakesink", nullptr);
    gst_object_ref_sink(element);

    QString expected; // the beginning of the outcome; empty without one
    while (input.remaining_bytes() > 0 && player.engine->pipeline) {
        GstMessage* message =
            nextMessage(input, GST_OBJECT(player.engine->pipeline), GST_OBJECT(element));
        const GstMessageType type = GST_MESSAGE_TYPE(message);
        if (expected.isEmpty() && type == GST_MESSAGE_ERROR) {
            expected = QStringLiteral("error T: ");
        } else if (expected.isEmpty() && type == GST_MESSAGE_EOS) {
            expected = QStringLiteral("ended T"); // this player cannot loop
        }
        require(player.engine->busWatch(nullptr, message), "the watch remains");
        require((type == GST_MESSAGE_ERROR) == !player.engine->pipeline,
                "only errors release the pipeline");
        require(outcomes.all.isEmpty(), "no outcome is reported from inside the watch");
        gst_message_unref(message);
    }
    deliverQueuedEvents();
    require(outcomes.all.size() == (expected.isEmpty() ? 0 : 1), "there is at most one outcome");
    require(outcomes.all.join(QString()).startsWith(expected), "the first outcome counts");
    gst_object_unref(element);
    return 0;
}
