// Any messages on the bus: of any type, from any source, with any structure.
//
// An input is one byte for the loop flag and a row of messages, each two bytes (type, source) and
// two texts.

#include "fuzz/FuzzProcess.h"
#include "kit/PlayerProbe.h"
#include "unit/TestEngine.h"

#include <gst/gst.h>

namespace {

GstState stateOf(int number)
{
    return static_cast<GstState>(number % 5);
}

/// A structure that GStreamer reads from a text, or an empty one when the text is none.
GstStructure* structureOf(const QByteArray& text)
{
    GstStructure* structure = gst_structure_from_string(text.constData(), nullptr);
    return structure ? structure : gst_structure_new_empty("nothing");
}

using Complaint = GstMessage* (*)(GstObject*, GError*, const gchar*);

GstMessage* complain(Complaint make, GstObject* source, int code, const QByteArray& text,
                     const QByteArray& debug)
{
    GError* error = g_error_new_literal(GST_STREAM_ERROR, code, text.constData());
    GstMessage* message = make(source, error, debug.constData());
    g_error_free(error);
    return message;
}

/// A message of a type that nobody acts upon, or one that ends the stream.
GstMessage* anyOther(int bit, GstObject* source, const QByteArray& text)
{
    // Elements make errors and state changes with functions of GStreamer, which fill them in.
    const auto type = static_cast<GstMessageType>(1U << (bit % 30));
    const bool isFilledIn = (type & (GST_MESSAGE_ERROR | GST_MESSAGE_STATE_CHANGED)) != 0;
    return gst_message_new_custom(isFilledIn ? GST_MESSAGE_APPLICATION : type, source,
                                  structureOf(text));
}

GstMessage* nextMessage(InputReader& input, GstObject* pipeline, GstObject* element)
{
    const int type = input.byte() % 6;
    const int from = input.byte();
    GstObject* source = from % 3 == 0 ? pipeline : from % 3 == 1 ? element : nullptr;
    const QByteArray text = input.text();
    const QByteArray more = input.text();
    switch (type) {
    case 0:
        return complain(gst_message_new_error, source, from, text, more);
    case 1: // says nothing, or something else
        return gst_message_new_custom(GST_MESSAGE_ERROR, source, structureOf(text));
    case 2:
        return gst_message_new_state_changed(source, stateOf(from), stateOf(from / 5),
                                             stateOf(from / 25));
    case 3:
        return gst_message_new_eos(source);
    case 4:
        return complain(gst_message_new_warning, source, from, text, more);
    default:
        return anyOther(from, source, text);
    }
}

} // namespace

FUZZ_TARGET
{
    InputReader input(bytes, size);
    TestPlayer player;
    Outcomes outcomes(&player);
    player.loop = input.byte() % 2 == 1;
    player.engine->startPlayback();
    GstElement* element = gst_element_factory_make("fakesink", nullptr);
    gst_object_ref_sink(element);

    QString expected; // how the outcome begins; empty as long as there is none
    while (!input.atEnd() && player.engine->pipeline) {
        GstMessage* message =
            nextMessage(input, GST_OBJECT(player.engine->pipeline), GST_OBJECT(element));
        const GstMessageType type = GST_MESSAGE_TYPE(message);
        if (expected.isEmpty() && type == GST_MESSAGE_ERROR) {
            expected = QStringLiteral("error T: ");
        } else if (expected.isEmpty() && type == GST_MESSAGE_EOS) {
            expected = QStringLiteral("ended T"); // this player cannot loop, whatever its flag says
        }
        require(player.engine->busWatch(nullptr, message), "the watch stays");
        require((type == GST_MESSAGE_ERROR) == !player.engine->pipeline,
                "errors and nothing else end the pipeline");
        require(outcomes.all.isEmpty(), "no outcome is told from inside the watch");
        gst_message_unref(message);
    }
    deliverQueuedEvents();
    require(outcomes.all.size() == (expected.isEmpty() ? 0 : 1), "there is one outcome, if any");
    require(outcomes.all.join(QString()).startsWith(expected), "the first outcome counts");
    gst_object_unref(element);
    return 0;
}
