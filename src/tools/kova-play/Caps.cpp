#include "Caps.h"

#include "Formats.h"
#include "Owners.h"

#include <QtCore/QStringList>
#include <QtCore/QtAlgorithms>

#include <gst/audio/audio-format.h>

#include <array>

namespace {

const QLatin1String
    example("audio/x-unaligned-raw,format=S16LE,rate=16000,channels=1,layout=interleaved");

/// The names of all sample formats, separated by commas.
QString sampleFormats()
{
    return QString(GST_AUDIO_FORMATS_ALL).remove('{').remove('}').trimmed();
}

bool isSampleFormat(const GValue* value)
{
    return G_VALUE_HOLDS_STRING(value) &&
           sampleFormats().split(", ").contains(QString::fromUtf8(g_value_get_string(value)));
}

bool isPositive(const GValue* value)
{
    return G_VALUE_HOLDS_INT(value) && g_value_get_int(value) > 0;
}

bool isInterleaved(const GValue* value)
{
    return G_VALUE_HOLDS_STRING(value) && g_strcmp0(g_value_get_string(value), "interleaved") == 0;
}

/// A field that caps of raw samples must have.
struct Field
{
    const char* name;
    bool (*isRight)(const GValue*);
    QString choice; ///< what it may be
};

std::array<Field, 4> fieldsOfRawSamples()
{
    return {{{"format", isSampleFormat, "one of " + sampleFormats()},
             {"rate", isPositive, "a number of samples per second, as 48000"},
             {"channels", isPositive, "a number, as 2"},
             {"layout", isInterleaved, "interleaved"}}};
}

QString problemWithField(const GstStructure* structure, const Field& field)
{
    const GValue* value = gst_structure_get_value(structure, field.name);
    if (!value) {
        return QString("'%1' is missing: it is %2").arg(QLatin1String(field.name), field.choice);
    }
    if (!field.isRight(value)) {
        const gst::Text given(gst_value_serialize(value));
        return QString("%1 cannot be '%2': it is %3")
            .arg(QLatin1String(field.name), QString::fromUtf8(given.get()), field.choice);
    }
    return QString();
}

/// A field of raw samples that does not exist, most likely a mistyped one; empty when there is
/// none.
QString unknownField(const GstStructure* structure)
{
    const QStringList known = {"format", "rate", "channels", "layout", "channel-mask"};
    for (int i = 0; i < gst_structure_n_fields(structure); ++i) {
        const QString name =
            QString::fromUtf8(gst_structure_nth_field_name(structure, static_cast<guint>(i)));
        if (!known.contains(name)) {
            return QString("there is no field '%1': the fields are %2").arg(name, known.join(", "));
        }
    }
    return QString();
}

QString problemWithChannelMask(const GstStructure* structure)
{
    int channels = 0;
    guint64 mask = 0;
    gst_structure_get_int(structure, "channels", &channels);
    const bool isMask =
        gst_structure_get(structure, "channel-mask", GST_TYPE_BITMASK, &mask, nullptr);
    const bool isGiven = gst_structure_has_field(structure, "channel-mask");
    // A mask without bits means that the channels have no positions.
    if (isMask ? mask == 0 || qPopulationCount(quint64(mask)) == static_cast<uint>(channels)
               : !isGiven && channels <= 2) {
        return QString();
    }
    const Field field = {"channel-mask", [](const GValue* /*value*/) { return false; },
                         "(bitmask) and a number with one bit for each channel, as (bitmask)0x33 "
                         "for four"};
    return problemWithField(structure, field);
}

QString problemWithRawSamples(const GstStructure* structure)
{
    QString problem = unknownField(structure);
    for (const Field& field : fieldsOfRawSamples()) {
        if (problem.isEmpty()) {
            problem = problemWithField(structure, field);
        }
    }
    return problem.isEmpty() ? problemWithChannelMask(structure) : problem;
}

} // namespace

QString caps::problemWith(const QString& text)
{
    const gst::Caps described(gst_caps_from_string(text.toUtf8().constData()));
    if (!described || gst_caps_get_size(described.get()) != 1) {
        return QString("'%1' does not describe caps. Raw samples are described like this: %2")
            .arg(text, example);
    }
    const GstStructure* structure = gst_caps_get_structure(described.get(), 0);
    QString problem;
    if (gst_structure_has_name(structure, "audio/x-raw") ||
        gst_structure_has_name(structure, "audio/x-unaligned-raw")) {
        problem = problemWithRawSamples(structure);
    } else if (!formats::isDecodable(described.get())) {
        problem = QString("nothing here decodes '%1'; raw samples are %2")
                      .arg(QString::fromUtf8(gst_structure_get_name(structure)), example);
    }
    return problem.isEmpty() ? QString() : "--caps: " + problem;
}

QString caps::inWords(const GstCaps* format)
{
    if (gst_caps_get_size(format) == 0) {
        return QString();
    }
    const GstStructure* structure = gst_caps_get_structure(format, 0);
    int rate = 0;
    int channels = 0;
    const gchar* samples = gst_structure_get_string(structure, "format");
    if (!samples || !gst_structure_get_int(structure, "rate", &rate) ||
        !gst_structure_get_int(structure, "channels", &channels)) {
        return QString::fromUtf8(gst_structure_get_name(structure));
    }
    const QString arrangement = channels == 1   ? QString("mono")
                                : channels == 2 ? QString("stereo")
                                                : QString("%1 channels").arg(channels);
    return QString("%1 Hz %2 %3").arg(QString::number(rate), arrangement, samples);
}
