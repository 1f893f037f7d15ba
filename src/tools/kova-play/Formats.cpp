#include "Formats.h"

#include "Elements.h"
#include "Owners.h"

#undef signals // Qt's keyword, and the name of a field of GIO
#include <gio/gio.h>

#include <algorithm>

namespace {

using formats::Need;
using Kind = formats::Need::Kind;

const char* const base = "gstreamer1.0-plugins-base";
const char* const good = "gstreamer1.0-plugins-good";
const char* const libav = "gstreamer1.0-libav";

const Need oggDemuxer = {Kind::Demuxer, "application/ogg; audio/ogg; video/ogg", base};
const Need httpSource = {Kind::Protocol, "http", good};

/// Whether an element of one of the types, which is good enough to be chosen by itself, takes it.
bool isTaken(const GstCaps* data, GstElementFactoryListType types)
{
    const gst::FeatureList factories(
        gst_element_factory_list_get_elements(types, GST_RANK_MARGINAL));
    return gst::FeatureList(gst_element_factory_list_filter(factories.get(), data, GST_PAD_SINK,
                                                            FALSE)) != nullptr;
}

GstElementFactoryListType typeOf(Kind kind)
{
    switch (kind) {
    case Kind::Demuxer:
        return GST_ELEMENT_FACTORY_TYPE_DEMUXER;
    case Kind::Parser:
        return GST_ELEMENT_FACTORY_TYPE_PARSER;
    default:
        return GST_ELEMENT_FACTORY_TYPE_DECODER;
    }
}

bool isInstalled(const Need& need)
{
    switch (need.kind) {
    case Kind::Protocol:
        return gst_uri_protocol_is_supported(GST_URI_SRC, need.what);
    case Kind::Tls:
        return g_tls_backend_supports_tls(g_tls_backend_get_default());
    default:
        const gst::Caps caps(gst_caps_from_string(need.what));
        return isTaken(caps.get(), typeOf(need.kind));
    }
}

/// Whether the need is for data that GStreamer found no decoder for.
bool takes(const Need& need, const GstCaps* data)
{
    if (need.kind == Kind::Protocol || need.kind == Kind::Tls) {
        return false;
    }
    const gst::Caps caps(gst_caps_from_string(need.what));
    return gst_caps_can_intersect(caps.get(), data);
}

/// The package of the first need that fulfils a condition; empty when there is none.
template <typename Condition>
QString packageOfNeed(Condition condition)
{
    for (const formats::Format& format : formats::all()) {
        const auto found = std::find_if(format.needs.begin(), format.needs.end(), condition);
        if (found != format.needs.end()) {
            return QString::fromLatin1(found->package);
        }
    }
    return QString();
}

QString packageOfDecoder(const QString& description)
{
    const gst::Caps data(gst_caps_from_string(description.toUtf8().constData()));
    // A parser that is installed takes the data, too: its package is not the one.
    return data ? packageOfNeed([&](const Need& need) {
        return takes(need, data.get()) && !isInstalled(need);
    })
                : QString();
}

QString packageOfProtocol(const QString& protocol)
{
    return packageOfNeed([&](const Need& need) {
        return need.kind == Kind::Protocol && protocol == QLatin1String(need.what);
    });
}

QString packageOfElement(const QString& name)
{
    for (const elements::Element& element : elements::needed()) {
        if (name == QLatin1String(element.name)) {
            return QString::fromLatin1(element.package);
        }
    }
    return QString();
}

} // namespace

const std::vector<formats::Format>& formats::all()
{
    static const std::vector<Format> list = {
        {"WAV", {{Kind::Demuxer, "audio/x-wav", good}}},
        {"FLAC", {{Kind::Parser, "audio/x-flac", good}, {Kind::Decoder, "audio/x-flac", good}}},
        {"MP3",
         {{Kind::Demuxer, "application/x-id3", good},
          {Kind::Parser, "audio/mpeg,mpegversion=1", good},
          {Kind::Decoder, "audio/mpeg,mpegversion=1,layer=3", good}}},
        {"Ogg Vorbis", {oggDemuxer, {Kind::Decoder, "audio/x-vorbis", base}}},
        {"Opus", {oggDemuxer, {Kind::Decoder, "audio/x-opus", base}}},
        {"AAC/MP4",
         {{Kind::Demuxer, "video/quicktime; audio/x-m4a", good},
          {Kind::Parser, "audio/mpeg,mpegversion=4", good},
          {Kind::Decoder, "audio/mpeg,mpegversion=4", libav}}},
        {"Matroska",
         {{Kind::Demuxer, "audio/x-matroska; video/x-matroska; audio/webm; video/webm", good}}},
        {"http", {httpSource}},
        {"https", {{Kind::Protocol, "https", good}, {Kind::Tls, "", "glib-networking"}}},
    };
    return list;
}

QStringList formats::missingPackages(const Format& format)
{
    QStringList packages;
    for (const Need& need : format.needs) {
        if (!isInstalled(need)) {
            packages << QString::fromLatin1(need.package);
        }
    }
    packages.removeDuplicates();
    return packages;
}

bool formats::isDecodable(const GstCaps* data)
{
    return isTaken(data, GST_ELEMENT_FACTORY_TYPE_DECODABLE);
}

QString formats::packageFor(const QString& installerDetail)
{
    // "gstreamer|1.0|PROGRAM|DESCRIPTION|KIND-WHAT", where WHAT may contain more of everything
    const QString request = installerDetail.section('|', 4);
    const QString what = request.section('-', 1);
    if (request.startsWith(QLatin1String("decoder-"))) {
        return packageOfDecoder(what);
    }
    if (request.startsWith(QLatin1String("urisource-"))) {
        return packageOfProtocol(what);
    }
    return packageOfElement(what);
}
