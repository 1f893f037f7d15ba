// Counts objects and copies inside a pipeline, and prints them.
//
//     probe data DEVICE BYTES shared|unshared
//         plays a WAV file of this size from memory
//         copies N: arrays other than the client's that the chunks refer to
//         chunks N: number of chunks
//         peak N: peak memory of the process, in bytes
//     probe objects DEVICE ITEM kova|bare
//         objects CREATED LEFT: created by each further playback, and alive after all of them

#include "BarePipeline.h"
#include "KovaLog.h"
#include "KovaPlayback.h"
#include "PeakMemory.h"

#include <kit/GstLeaks.h>
#include <simplePlayer/DataSimplePlayer.h>
#include <wav/Wav.h>

#include <QtCore/QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

static void playToEnd(Playback& playback)
{
    playback.start();
    contender::runLoop();
}

static void quitOrFail(bool ended)
{
    if (!ended) {
        std::fprintf(stderr, "the playback failed\n");
        std::exit(1);
    }
    contender::quitLoop();
}

// ---- Bytes ------------------------------------------------------------------------------------

/// A WAV file of silence, created in place so that the process never holds it twice. One second of
/// it takes much memory, so that large arrays are soon played.
static QByteArray silentWav(int size)
{
    const WavLayout layout = {192000, 2, 4, false};
    const std::size_t headerSize = wavHeader(layout, 0).size();
    const std::string header = wavHeader(layout, static_cast<std::size_t>(size) - headerSize);
    QByteArray file(size, '\0');
    header.copy(file.data(), header.size());
    return file;
}

namespace {

/// The chunks that a data player delivers, and the arrays that they refer to.
struct Chunks
{
    std::set<const void*> arrays;
    long count = 0;
};

} // namespace

/// Returns the beginning of the array that a chunk refers to, from the chunk's offset.
static const guint8* arrayOf(GstBuffer* chunk)
{
    GstMapInfo map;
    gst_buffer_map(chunk, &map, GST_MAP_READ);
    const guint8* begin = map.data - GST_BUFFER_OFFSET(chunk);
    gst_buffer_unmap(chunk, &map);
    return begin;
}

/// Called on streaming threads, one at a time.
static GstPadProbeReturn addChunk(GstPad* /*pad*/, GstPadProbeInfo* info, void* chunks)
{
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) && info->data) {
        auto* const all = static_cast<Chunks*>(chunks);
        all->arrays.insert(arrayOf(gst_pad_probe_info_get_buffer(info)));
        ++all->count;
    }
    return GST_PAD_PROBE_OK;
}

static void probeData(const QString& device, int bytes, bool shared)
{
    Chunks chunks;
    const StateChangeObserver observer([&](GstElement* element, GstStateChange change) {
        if (change == GST_STATE_CHANGE_NULL_TO_READY &&
            std::strcmp(GST_OBJECT_NAME(element), "AppSrc") == 0) {
            GstPad* source = gst_element_get_static_pad(element, "src");
            gst_pad_add_probe(
                source,
                static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_PULL | GST_PAD_PROBE_TYPE_BUFFER),
                addChunk, &chunks, nullptr);
            gst_object_unref(source);
        }
    });
    QByteArray file = silentWav(bytes);
    const void* const clients = file.constData();
    KovaPlayback playback(std::make_unique<DataSimplePlayer>(file, QStringLiteral("token"), device),
                          false, quitOrFail);
    if (!shared) {
        file = QByteArray();
    }
    playToEnd(playback);
    chunks.arrays.erase(clients);
    std::printf("copies %zu\nchunks %ld\n", chunks.arrays.size(), chunks.count);
    printPeakMemory();
}

// ---- Objects ----------------------------------------------------------------------------------

static std::unique_ptr<Playback> prepare(const QString& device, const QString& item, bool bare)
{
    if (bare) {
        return makeBareUriPipeline(item.toStdString(), device.toStdString(), false, quitOrFail);
    }
    return makeKovaUriPlayback(item.toStdString(), device.toStdString(), false, quitOrFail);
}

static void probeObjects(const QString& device, const QString& item, bool bare)
{
    const int plays = 4;
    // The first playback creates what exists once in a process.
    playToEnd(*prepare(device, item, bare));
    const long before = createdGstObjects();
    for (int i = 0; i < plays; ++i) {
        playToEnd(*prepare(device, item, bare));
    }
    const long created = createdGstObjects() - before;
    leakedGstObjects(); // waits until GStreamer's threads have released theirs
    std::printf("objects %ld %d\n", created / plays, liveGstObjects().size());
}

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
    trackGstObjects();
    setUpLog();
}

int main(int argc, char** argv)
{
    contender::begin(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    if (words.size() == 5 && words[1] == "data") {
        probeData(words[2], words[3].toInt(), words[4] == "shared");
        return 0;
    }
    if (words.size() == 5 && words[1] == "objects") {
        probeObjects(words[2], words[3], words[4] == "bare");
        return 0;
    }
    return 2;
}
