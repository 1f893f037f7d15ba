#include "kit/GstFaults.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/Source.h"
#include "kit/TestProcess.h"
#include "kit/Waiting.h"

#include <QtTest/QtTest>

#include <functional>
#include <memory>
#include <vector>

/// What the construction of a player does to its process, and players that exist before or after
/// the QCoreApplication.
class TestConstruction : public QObject
{
    Q_OBJECT

public:
    using Players = std::vector<std::unique_ptr<SimplePlayer>>;

    /// One player of each kind.
    static Players makePlayers();

    bool wasInitialized = true; ///< GStreamer, before the first player of the process
    Players madeBeforeTheApplication;
    Players outliveTheApplication;

private Q_SLOTS:
    void firstPlayerInitializesGStreamer();
    void constructionLoadsNoPlugin();
    void elementsOfTheClientAreKept_data();
    void elementsOfTheClientAreKept();

    void playersMadeBeforeTheApplicationCanBeUsed();
    void playersMayOutliveTheApplication();
};

TestConstruction::Players TestConstruction::makePlayers()
{
    const QString token = QStringLiteral("T");
    const QString device = QStringLiteral("no-such-device");
    Players players;
    for (const Source* source : Source::all()) {
        players.emplace_back(source->makePlayer(Item(QByteArray("bytes")), token, device, nullptr));
    }
    players.emplace_back(new FakePlayer(token));
    return players;
}

void TestConstruction::firstPlayerInitializesGStreamer()
{
    QVERIFY(!wasInitialized);
    QVERIFY(gst_is_initialized());
}

static QStringList loadedPlugins()
{
    QStringList loaded;
    GList* plugins = gst_registry_get_plugin_list(gst_registry_get());
    for (const GList* item = plugins; item; item = item->next) {
        auto* const plugin = static_cast<GstPlugin*>(item->data);
        if (gst_plugin_is_loaded(plugin)) {
            loaded += QString::fromUtf8(gst_plugin_get_name(plugin));
        }
    }
    gst_plugin_list_free(plugins);
    loaded.sort();
    return loaded;
}

void TestConstruction::constructionLoadsNoPlugin()
{
    const QStringList before = loadedPlugins();
    const Players players = makePlayers();
    QCOMPARE(loadedPlugins(), before);
}

void TestConstruction::elementsOfTheClientAreKept_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char* name : {"decodebin", "uridecodebin", "alsasink", "queue"}) {
        QTest::newRow(name) << QByteArray(name);
    }
}

void TestConstruction::elementsOfTheClientAreKept()
{
    QFETCH(QByteArray, name);
    const ReplacedFactory replaced(name.constData(), "fakesink");
    const Players players = makePlayers();
    GstElement* element = gst_element_factory_make(name.constData(), nullptr);
    QVERIFY(element);
    QCOMPARE(G_OBJECT_TYPE_NAME(element), "GstFakeSink");
    gst_object_unref(element);
}

/// Calls all functions of players that cannot play, as their device does not exist.
static void useAll(const TestConstruction::Players& players)
{
    for (const std::unique_ptr<SimplePlayer>& player : players) {
        player->startPlayback();
        player->pausePlayback();
        player->stopPlayback();
    }
}

void TestConstruction::playersMadeBeforeTheApplicationCanBeUsed()
{
    const Outcomes outcomes(madeBeforeTheApplication.front().get());
    useAll(madeBeforeTheApplication);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all.size(), 1, patience);
    madeBeforeTheApplication.clear();
}

void TestConstruction::playersMayOutliveTheApplication()
{
    outliveTheApplication = makePlayers();
    useAll(outliveTheApplication);
    QCOMPARE(outliveTheApplication.size(), Players::size_type(4));
}

int main(int argc, char** argv)
{
    const TestProcess process;
    TestConstruction test;
    test.wasInitialized = gst_is_initialized();
    {
        const TestConstruction::Players withoutApplication = TestConstruction::makePlayers();
        useAll(withoutApplication);
    }
    test.madeBeforeTheApplication = TestConstruction::makePlayers();
    int status = 0;
    {
        const QCoreApplication application(argc, argv);
        status = QTest::qExec(&test, argc, argv);
    }
    useAll(test.outliveTheApplication);
    test.outliveTheApplication.clear();
    return status;
}

#include "tst_construction.moc"
