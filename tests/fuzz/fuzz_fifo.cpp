// Any moments and sizes of writing and reading: what the source takes in is what was written.
//
// Each byte of an input is one deed.

#include "fuzz/FifoEnd.h"
#include "fuzz/FuzzProcess.h"
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

/// What has arrived behind the source, on its streaming thread.
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

/// The next bytes of a row that shows when one is lost, doubled or changed.
QByteArray nextBytes(int from, int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (int i = 0; i < count; ++i) {
        bytes[i] = static_cast<char>((from + i) % 251);
    }
    return bytes;
}

/// Does what one byte says.
void act(uint8_t deed, OpenEngine& engine, const FifoEnd& writer, QByteArray& written)
{
    switch (deed % 8) {
    case 0:
        engine.receive(deed > 127);
        break;
    case 1:
    case 2:
        QCoreApplication::processEvents();
        break;
    default: {
        const QByteArray bytes = nextBytes(written.size(), deed * deed / 8);
        written.append(bytes.left(writer.write(bytes)));
    }
    }
}

/// Where the decoder would be, the bytes are taken as they come. Lives as long as the process.
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
        FifoEnd writer(fifo);
        QByteArray written;
        require(engine.startPlayback(), "a pipe is waited for");
        Arrived arrived(engine.decodebin);

        InputReader input(bytes, size);
        while (!input.atEnd()) {
            act(input.byte(), engine, writer, written);
        }
        writer.close();
        engine.receive(true);
        require(waitFor([&] { return !engine.pipe && arrived.get() == written; }),
                "everything that was written arrives, in order, and then the pipe is closed");
        engine.stopPlayback(); // no more is handed over from here on
    }
    require(leakedGstObjects().isEmpty(), "nothing is left of a pipeline");
    return 0;
}
