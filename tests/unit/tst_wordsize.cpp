#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/LogCapture.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <gst/app/gstappsrc.h>

#include <QtTest/QtTest>

/// What 32 and 64 bit machines could do differently: where members stand, and numbers that do not
/// fit into a word. The same numbers are expected in every build, each on its own kind of machine.
class TestWordSize : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void membersStandWhereCompiledClientsExpectThem_data();
    void membersStandWhereCompiledClientsExpectThem();
    void objectsAreAsLargeAsCompiledClientsExpect_data();
    void objectsAreAsLargeAsCompiledClientsExpect();
    void propertiesOf64BitsArriveWhole();
    void positionBeyond32BitsIsNotCutDown_data();
    void positionBeyond32BitsIsNotCutDown();
    void requestThatWouldOverflowGetsTheRest_data();
    void requestThatWouldOverflowGetsTheRest();
};

namespace {

const QByteArray tenBytes("0123456789");

/// One object of each class. The engines are further ones, beside those of the front objects.
struct Objects
{
    FakePlayer fake{QStringLiteral("T")};
    TestPlayer test;
    UriSimplePlayer uriFront{QString(), QStringLiteral("T"), QString()};
    DataSimplePlayer dataFront{tenBytes, QStringLiteral("T"), QString()};
    StreamSimplePlayer streamFront{QString(), QString(), QStringLiteral("T"), QString()};
    OpenUriEngine uri{QString(), QStringLiteral("T"), QString(), &uriFront};
    OpenDataEngine data{tenBytes, QStringLiteral("T"), QStringLiteral("null"), &dataFront};
    OpenStreamEngine stream{QString(), QString(), QStringLiteral("T"), QStringLiteral("null"),
                            &streamFront};
};

/// A row with the number that is found, and the one of the kind of machine that this is.
void addNumber(const char* name, std::size_t found, std::size_t on64Bits, std::size_t on32Bits)
{
    QTest::newRow(name) << quint64(found) << quint64(sizeof(void*) == 8 ? on64Bits : on32Bits);
}

/// A row with the place of a member.
template <typename Object, typename Member>
void addMember(const char* name, const Object& object, const Member& member, std::size_t on64Bits,
               std::size_t on32Bits)
{
    const auto distance =
        reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&object);
    addNumber(name, static_cast<std::size_t>(distance), on64Bits, on32Bits);
}

void compareNumbers()
{
    QFETCH(quint64, found);
    QFETCH(quint64, expected);
    QCOMPARE(found, expected);
}

} // namespace

void TestWordSize::membersStandWhereCompiledClientsExpectThem_data()
{
    QTest::addColumn<quint64>("found");
    QTest::addColumn<quint64>("expected");
    const Objects all;

    addMember("SimplePlayer::loop", all.fake, all.fake.loop, 16, 8);

    const TestEngine& engine = *all.test.engine;
    addMember("SimplePlayerImpl::player", engine, engine.player, 16, 8);
    addMember("SimplePlayerImpl::pipeline", engine, engine.pipeline, 24, 12);
    addMember("SimplePlayerImpl::token", engine, engine.token, 32, 16);
    addMember("SimplePlayerImpl::device", engine, engine.device, 40, 20);
    addMember("SimplePlayerImpl::initialized", engine, engine.initialized, 48, 24);
    addMember("SimplePlayerImpl::endReported", engine, engine.endReported, 49, 25);

    const OpenUriEngine& uri = all.uri;
    addMember("UriSimplePlayerImpl::uriPlayer", uri, uri.uriPlayer, 56, 28);
    addMember("UriSimplePlayerImpl::uriDecodeBin", uri, uri.uriDecodeBin, 64, 32);
    addMember("UriSimplePlayerImpl::queue", uri, uri.queue, 72, 36);
    addMember("UriSimplePlayerImpl::sink", uri, uri.sink, 80, 40);
    addMember("UriSimplePlayerImpl::uri", uri, uri.uri, 88, 44);

    const OpenDataEngine& data = all.data;
    addMember("DataSimplePlayerImpl::dataPlayer", data, data.dataPlayer, 56, 28);
    addMember("DataSimplePlayerImpl::appsrc", data, data.appsrc, 64, 32);
    addMember("DataSimplePlayerImpl::decodebin", data, data.decodebin, 72, 36);
    addMember("DataSimplePlayerImpl::queue", data, data.queue, 80, 40);
    addMember("DataSimplePlayerImpl::sink", data, data.sink, 88, 44);
    addMember("DataSimplePlayerImpl::data", data, data.data, 96, 48);
    // Four bytes are left free on ARM, where numbers of 64 bits are aligned to their size.
    addMember("DataSimplePlayerImpl::offset", data, data.offset, 104, 56);

    const OpenStreamEngine& stream = all.stream;
    addMember("StreamSimplePlayerImpl::streamPlayer", stream, stream.streamPlayer, 56, 28);
    addMember("StreamSimplePlayerImpl::appsrc", stream, stream.appsrc, 64, 32);
    addMember("StreamSimplePlayerImpl::decodebin", stream, stream.decodebin, 72, 36);
    addMember("StreamSimplePlayerImpl::queue", stream, stream.queue, 80, 40);
    addMember("StreamSimplePlayerImpl::sink", stream, stream.sink, 88, 44);
    addMember("StreamSimplePlayerImpl::caps", stream, stream.caps, 96, 48);
    addMember("StreamSimplePlayerImpl::pipeName", stream, stream.pipeName, 104, 52);
    addMember("StreamSimplePlayerImpl::pipe", stream, stream.pipe, 112, 56);
}

void TestWordSize::membersStandWhereCompiledClientsExpectThem()
{
    compareNumbers();
}

void TestWordSize::objectsAreAsLargeAsCompiledClientsExpect_data()
{
    QTest::addColumn<quint64>("found");
    QTest::addColumn<quint64>("expected");
    // loop and the word behind it, whose place the size shows.
    addNumber("SimplePlayer", sizeof(SimplePlayer), 24, 16);
    addNumber("FakePlayer", sizeof(FakePlayer), 32, 20);
    addNumber("UriSimplePlayer", sizeof(UriSimplePlayer), 32, 20);
    addNumber("DataSimplePlayer", sizeof(DataSimplePlayer), 32, 20);
    addNumber("StreamSimplePlayer", sizeof(StreamSimplePlayer), 32, 20);
    addNumber("SimplePlayerImpl", sizeof(SimplePlayerImpl), 56, 28);
    addNumber("UriSimplePlayerImpl", sizeof(UriSimplePlayerImpl), 96, 48);
    addNumber("StreamSimplePlayerImpl", sizeof(StreamSimplePlayerImpl), 120, 60);
}

void TestWordSize::objectsAreAsLargeAsCompiledClientsExpect()
{
    compareNumbers();
}

void TestWordSize::propertiesOf64BitsArriveWhole()
{
    // A number that is handed over narrower takes bytes of its neighbour on 32 bits.
    Objects all;
    QVERIFY(all.stream.setupGstPipeline());
    QCOMPARE(gst_app_src_get_max_bytes(GST_APP_SRC(all.stream.appsrc)), guint64(1000));
    gint format = -1;
    g_object_get(all.stream.appsrc, "format", &format, nullptr);
    QCOMPARE(format, int(GST_FORMAT_TIME));

    QVERIFY(all.data.setupGstPipeline());
    QCOMPARE(gst_app_src_get_max_bytes(GST_APP_SRC(all.data.appsrc)), guint64(tenBytes.size()));
    QCOMPARE(gst_app_src_get_size(GST_APP_SRC(all.data.appsrc)), gint64(tenBytes.size()));
}

void TestWordSize::positionBeyond32BitsIsNotCutDown_data()
{
    QTest::addColumn<quint64>("position");
    // The lower half of each is a position in the array.
    QTest::newRow("4 GiB") << (quint64(1) << 32);
    QTest::newRow("4 GiB and 6 bytes") << (quint64(1) << 32) + 6;
    QTest::newRow("2^63 and 9 bytes") << (quint64(1) << 63) + 9;
}

void TestWordSize::positionBeyond32BitsIsNotCutDown()
{
    QFETCH(quint64, position);
    Objects all;
    QVERIFY(all.data.setupGstPipeline());
    gboolean accepted = FALSE;
    g_signal_emit_by_name(all.data.appsrc, "seek-data", position, &accepted);
    QCOMPARE(accepted, TRUE);
    QCOMPARE(all.data.offset, position);
    const LogCapture log;
    g_signal_emit_by_name(all.data.appsrc, "need-data", 4U);
    QCOMPARE(log.lines().last(), QStringLiteral("DEBUG EOS sent with ret0"));
    QCOMPARE(all.data.offset, position);
}

void TestWordSize::requestThatWouldOverflowGetsTheRest_data()
{
    QTest::addColumn<quint64>("position");
    QTest::addColumn<uint>("length");
    // Position and length together: just below 2^32, 2^32 itself, and beyond it.
    QTest::newRow("from the beginning") << quint64(0) << 0xFFFFFFFFU;
    QTest::newRow("2^32 in sum") << quint64(6) << 0xFFFFFFFAU;
    QTest::newRow("a little more than 2^32 in sum") << quint64(6) << 0xFFFFFFFCU;
    QTest::newRow("all that a request can ask for") << quint64(9) << 0xFFFFFFFFU;
}

void TestWordSize::requestThatWouldOverflowGetsTheRest()
{
    QFETCH(quint64, position);
    QFETCH(uint, length);
    Objects all;
    QVERIFY(all.data.setupGstPipeline());
    gboolean accepted = FALSE;
    g_signal_emit_by_name(all.data.appsrc, "seek-data", position, &accepted);
    const LogCapture log;
    g_signal_emit_by_name(all.data.appsrc, "need-data", length);
    const quint64 rest = quint64(tenBytes.size()) - position;
    QCOMPARE(log.lines().mid(1, 2),
             (QStringList{QStringLiteral("DEBUG Cropping to size %1").arg(rest),
                          QStringLiteral("TRACE Pushed buffer of size %1 offset %2 , ret: 0")
                              .arg(rest)
                              .arg(position)}));
    QCOMPARE(all.data.offset, quint64(tenBytes.size()));
}

KOVA_TEST(TestWordSize)
#include "tst_wordsize.moc"
