// Counts what cannot be seen from outside, with GStreamer's tracing hooks.
//
//     probe data DEVICE BYTES shared|unshared
//         plays a WAV file of so many bytes in memory
//         copies N: the arrays beside the client's own that the chunks came from
//         chunks N: how many chunks there were
//         peak N: how many bytes the process held at most
//     probe objects DEVICE ITEM kova|bare
//         objects MADE LEFT: made by each of several further playbacks, and left by all of them

#include "BarePipeline.h"
#include "KovaLog.h"
#include "KovaPlayback.h"
#include "ObjectTracer.h"
#include "PeakMemory.h"

#include <simplePlayer/DataSimplePlayer.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDataStream>
#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

static void playToItsEnd(Playback& playback)
{
    playback.start();
    contender::runLoop();
}

static void leaveLoop(bool ended)
{
    if (!ended) {
        std::fprintf(stderr, "the playback failed\n");
        std::exit(1);
    }
    contender::quitLoop();
}

// ---- Bytes ------------------------------------------------------------------------------------

/// Of a sound with so many bytes a second that much memory is soon played.
static QByteArray wavHeader(quint32 bytes)
{
    const quint32 rate = 192000;
    const quint16 frameSize = 8;
    QByteArray header;
    QDataStream out(&header, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << bytes - 8;
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(2) << rate << rate * frameSize << frameSize
        << quint16(32);
    out.writeRawData("data", 4);
    out << bytes - 44;
    return header;
}

/// A WAV file with silence, made in place, so that the process never holds it twice.
static QByteArray silentWav(int bytes)
{
    QByteArray file(bytes, '\0');
    const QByteArray header = wavHeader(static_cast<quint32>(bytes));
    std::memcpy(file.data(), header.constData(), static_cast<std::size_t>(header.size()));
    return file;
}

static bool comesFromAppSrc(GstPad* source)
{
    GstObject* element = gst_object_get_parent(GST_OBJECT(source));
    const bool comes = element && std::strcmp(GST_OBJECT_NAME(element), "AppSrc") == 0;
    gst_clear_object(&element);
    return comes;
}

/// Where the array begins that a chunk is a view of: as far before the chunk as its offset says.
static const guint8* arrayOf(GstBuffer* chunk)
{
    GstMapInfo map;
    gst_buffer_map(chunk, &map, GST_MAP_READ);
    const guint8* begin = map.data - GST_BUFFER_OFFSET(chunk);
    gst_buffer_unmap(chunk, &map);
    return begin;
}

static void probeData(const QString& device, int bytes, bool shared)
{
    std::set<const void*> arrays;
    long chunks = 0;
    watchPulledBuffers([&](GstPad* source, GstBuffer* buffer) {
        if (comesFromAppSrc(source)) {
            arrays.insert(arrayOf(buffer));
            ++chunks;
        }
    });
    QByteArray file = silentWav(bytes);
    const void* const clients = file.constData();
    KovaPlayback playback(std::make_unique<DataSimplePlayer>(file, QStringLiteral("token"), device),
                          false, leaveLoop);
    if (!shared) {
        file = QByteArray();
    }
    playToItsEnd(playback);
    arrays.erase(clients);
    std::printf("copies %zu\nchunks %ld\n", arrays.size(), chunks);
    printPeakMemory();
}

// ---- Objects ----------------------------------------------------------------------------------

static std::unique_ptr<Playback> prepare(const QString& device, const QString& item, bool bare)
{
    if (bare) {
        return makeBareUriPipeline(item.toStdString(), device.toStdString(), false, leaveLoop);
    }
    return makeKovaUriPlayback(item.toStdString(), device.toStdString(), false, leaveLoop);
}

/// Some objects belong to threads of GStreamer that end a little later than their pipeline.
static long objectsLeft(long aliveBefore)
{
    QElapsedTimer waiting;
    waiting.start();
    while (objectsAlive() > aliveBefore && !waiting.hasExpired(5000)) {
        QThread::msleep(1);
    }
    return objectsAlive() - aliveBefore;
}

static void probeObjects(const QString& device, const QString& item, bool bare)
{
    const int plays = 4;
    countObjects();
    // What is made once for the whole process is made by the first playback.
    playToItsEnd(*prepare(device, item, bare));
    const long before = objectsMade();
    const long alive = objectsAlive();
    for (int i = 0; i < plays; ++i) {
        playToItsEnd(*prepare(device, item, bare));
    }
    const long madeByPlays = objectsMade() - before;
    std::printf("objects %ld %ld\n", madeByPlays / plays, objectsLeft(alive));
}

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
    gst_init(&argc, &argv);
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
