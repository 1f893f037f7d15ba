// Any times and sizes of writes and reads: the source receives what was written.
//
// Each byte of an input is one action.

#include "fuzz/FuzzProcess.h"
#include "kit/FifoWriter.h"
#include "kit/GstFaults.h"
#include "kit/PlayerProbe.h"

#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer_p.h>

#include <QtCore/QCoreApplication>

#include <gst/gst.h>

#include <mutex>

namespace {

class OpenEngine : public StreamSimplePlayerImpl
{
public:
    using StreamSimplePlayerImpl::decodebin;
    using StreamSimplePlayerImpl::pipe;
    using StreamSimplePlayerImpl::StreamSimplePlayerImpl;

    void receive(bool enable)
    {
        QMetaObject::invokeMethod(this, "on_receiveNewData", Q_ARG(bool, enable));
    }
};

/// The bytes that leave the source, on its streaming thread.
class Arrived
{
public:
    explicit Arrived(GstElement* element)
    {
        g_object_set(element, "signal-handoffs", TRUE, nullptr);
        g_signal_connect(element, "handoff", G_CALLBACK(handOver), this);
    }

    QByteArray get()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return bytes;
    }

private:
    static void handOver(GstElement* /*element*/, GstBuffer* buffer, GstPad* /*pad*/, gpointer self)
    {
        auto* arrived = static_cast<Arrived*>(self);
        GstMapInfo map;
        gst_buffer_map(buffer, &map, GST_MAP_READ);
        {
            const std::lock_guard<std::mutex> lock(arrived->mutex);
            arrived->bytes.append(reinterpret_cast<const char*>(map.data),
                                  static_cast<int>(map.size));
        }
        gst_buffer_unmap(buffer, &map);
    }

    std::mutex mutex;
    QByteArray bytes; ///< guarded by mutex
};

/// The next bytes of a sequence in which a lost, repeated or changed byte shows.
QByteArray nextBytes(int from, int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (int i = 0; i < count; ++i) {
        bytes[i] = static_cast<char>((from + i) % 251);
    }
    return bytes;
}

/// Performs the action of one byte.
void act(uint8_t action, OpenEngine& engine, const FifoWriter& writer, QByteArray& written)
{
    switch (action % 8) {
    case 0:
        engine.receive(action > 127);
        break;
    case 1:
    case 2:
        QCoreApplication::processEvents();
        break;
    default: {
        const QByteArray bytes = nextBytes(written.size(), action * action / 8);
        written.append(bytes.left(writer.writeSome(bytes)));
    }
    }
}

/// Replaces the decoder by an element that accepts all bytes. Exists as long as the process.
struct NoDecoder
{
    NoDecoder() { overlookLeakedGstObject(QStringLiteral("GstElementFactory")); }
    ReplacedFactory replaced{"decodebin", "fakesink"};
};

} // namespace

FUZZ_TARGET
{
    static const NoDecoder noDecoder;
    const QString fifo = TestProcess::path(QStringLiteral("fifo"));
    {
        StreamSimplePlayer front(QString(), QString(), QStringLiteral("token"), QString());
        OpenEngine engine(fifo, QString(), QStringLiteral("token"), QString(), &front);
        require(engine.pipe != nullptr, "a FIFO is made and opened");
        FifoWriter writer(fifo);
        QByteArray written;
        require(engine.startPlayback(), "a start without data succeeds");
        Arrived arrived(engine.decodebin);

        for (const uint8_t* action = bytes; action != bytes + size; ++action) {
            act(*action, engine, writer, written);
        }
        writer.close();
        engine.receive(true);
        require(waitFor([&] { return !engine.pipe && arrived.get() == written; }),
                "all written bytes arrive in order, then the FIFO is closed");
        engine.stopPlayback(); // ends the streaming thread, which uses `arrived`
    }
    require(leakedGstObjects().isEmpty(), "a pipeline is released completely");
    return 0;
}
