#include "PlaylistFile.h"

#include "Elements.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryFile>
#include <QtCore/QUrl>

#include <gst/gst.h>

#include <memory>

#ifdef KOVA_PLAYLISTS
#include <totem-pl-parser.h>
#endif

namespace {

/// ".m3u", ".m3u8", ".pls", or empty.
QString endOf(const QString& item)
{
    const QString name = pathOfItem(item).isEmpty() ? QUrl(item).path() : item;
    for (const char* end : {".m3u", ".m3u8", ".pls"}) {
        if (name.endsWith(QLatin1String(end), Qt::CaseInsensitive)) {
            return end;
        }
    }
    return QString();
}

} // namespace

bool playlistfile::isName(const QString& item)
{
    return !endOf(item).isEmpty();
}

#ifdef KOVA_PLAYLISTS

namespace {

constexpr GstClockTime patience = 10 * GST_SECOND;
constexpr int longest = 1000; // blocks of a playlist on the web; a stream of sound is no playlist

template <class Object>
struct Unref
{
    void operator()(Object* object) const { g_object_unref(object); }
};
template <class Object>
using Owner = std::unique_ptr<Object, Unref<Object>>;

struct PipelineDeleter
{
    void operator()(GstElement* pipeline) const
    {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
    }
};

/// Returns the pipeline's error, or one of our own if it does not end in time.
QString problemOf(GstElement* pipeline)
{
    const Owner<GstBus> bus(gst_element_get_bus(pipeline));
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus.get(), patience, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    if (!message) {
        return "it does not arrive";
    }
    QString problem;
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        problem = QString::fromUtf8(error->message);
        g_error_free(error);
    }
    gst_message_unref(message);
    return problem;
}

/// Loads a file of the web. @return why that failed; empty when it did not
QString load(const QString& uri, const QString& file)
{
    if (QString problem = elements::initialise(); !problem.isEmpty()) {
        return problem;
    }
    GstElement* source =
        gst_element_make_from_uri(GST_URI_SRC, uri.toUtf8().constData(), nullptr, nullptr);
    GstElement* sink = gst_element_factory_make("filesink", nullptr);
    if (!source || !sink) {
        return "nothing here loads it (kova-play --check)";
    }
    const std::unique_ptr<GstElement, PipelineDeleter> pipeline(gst_pipeline_new(nullptr));
    g_object_set(source, "num-buffers", longest, nullptr);
    g_object_set(sink, "location", QFile::encodeName(file).constData(), nullptr);
    gst_bin_add_many(GST_BIN(pipeline.get()), source, sink, nullptr);
    gst_element_link(source, sink);
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    return problemOf(pipeline.get());
}

QByteArray fileUri(const QByteArray& path)
{
    const Owner<GFile> file(g_file_new_for_path(path.constData()));
    const std::unique_ptr<char, decltype(&g_free)> uri(g_file_get_uri(file.get()), &g_free);
    return uri.get();
}

/// A parsed entry as an item: the player wants names of files as they are.
QString itemOf(const char* uri)
{
    const std::unique_ptr<char, decltype(&g_free)> path(g_filename_from_uri(uri, nullptr, nullptr),
                                                        &g_free);
    return path ? files::decoded(path.get()) : QString::fromUtf8(uri);
}

void addEntry(TotemPlParser* /*parser*/, const char* uri, GHashTable* /*metadata*/,
              QStringList* items)
{
    items->append(itemOf(uri));
}

/// Reads a local file.
/// @param base  URI of the folder from which entries count; null: that of the file
playlistfile::Result parse(const QByteArray& file, const char* base)
{
    const Owner<TotemPlParser> parser(totem_pl_parser_new());
    g_object_set(parser.get(), "recurse", FALSE, nullptr);
    playlistfile::Result result;
    g_signal_connect(parser.get(), "entry-parsed", G_CALLBACK(addEntry), &result.items);
    totem_pl_parser_parse_with_base(parser.get(), fileUri(file).constData(), base, FALSE);
    if (result.items.isEmpty()) {
        result.problem = {"the playlist has no entries", QString()};
    }
    return result;
}

} // namespace

playlistfile::Result playlistfile::read(const QString& item)
{
    const QString path = pathOfItem(item);
    if (!path.isEmpty()) {
        return parse(files::encoded(path), nullptr);
    }
    QTemporaryFile file(QDir::tempPath() + "/kova-play-XXXXXX" + endOf(item));
    const QString problem = file.open() ? load(item, file.fileName()) : file.errorString();
    if (!problem.isEmpty()) {
        return {QStringList(), {"the playlist could not be loaded: " + problem, QString()}};
    }
    return parse(
        QFile::encodeName(file.fileName()),
        QUrl(item).adjusted(QUrl::RemoveFilename | QUrl::RemoveQuery).toEncoded().constData());
}

#else

playlistfile::Result playlistfile::read(const QString& /*item*/)
{
    return {QStringList(),
            {"it is a playlist", "this kova-play was built without libtotem-plparser"}};
}

#endif
