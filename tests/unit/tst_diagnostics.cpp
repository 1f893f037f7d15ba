#include "unit/TestEngine.h"

#include "support/GstLeaks.h"
#include "support/LogCapture.h"
#include "support/TestProcess.h"

#include <QtCore/QDir>
#include <QtTest/QtTest>

/// The state-change log line and the pictures of pipelines.
class TestDiagnostics : public QObject
{
    Q_OBJECT

public:
    TestDiagnostics();

private Q_SLOTS:
    void init();
    void cleanup();

    void stateChangeLineHasItsThreeBlanks();
    void stateChangeLineNamesEveryState();
    void sourceWithoutNameIsSaid();
    void stateChangeIsNotComposedBelowTrace();

    void dumpIsNamedByPrefixAndName();
    void verboseDumpSaysSoInItsName();
    void verboseDumpShowsMore();
    void everyStateChangeOfAPlaybackIsDumped();
    void withoutFolderNothingIsWrittenOrLogged();

private:
    /// The names of the dumps without GStreamer's timestamp, in the order of their writing.
    QStringList dumps() const;

    QDir folder;
    LogCapture log;
};

// GStreamer looks for the folder once, when it is initialised: that comes later.
TestDiagnostics::TestDiagnostics() : folder(TestProcess::path(QStringLiteral("dumps")))
{
    QDir().mkpath(folder.path());
    qputenv("GST_DEBUG_DUMP_DOT_DIR", folder.path().toLocal8Bit());
}

void TestDiagnostics::init()
{
    for (const QString& file : folder.entryList(QDir::Files)) {
        QVERIFY(folder.remove(file));
    }
    log.clear();
}

void TestDiagnostics::cleanup()
{
    QCOMPARE(leakedGstObjects().join(QLatin1Char(' ')), QString());
}

QStringList TestDiagnostics::dumps() const
{
    QStringList names;
    for (const QString& file : folder.entryList(QDir::Files, QDir::Name)) {
        names.append(file.mid(file.indexOf(QLatin1Char('-')) + 1));
    }
    return names;
}

void TestDiagnostics::stateChangeLineHasItsThreeBlanks()
{
    GstElement* source = gst_element_factory_make("fakesink", "source");
    GstMessage* message = gst_message_new_eos(GST_OBJECT(source));
    printGstStateChangeMessage(message, GST_STATE_READY, GST_STATE_PAUSED, GST_STATE_PLAYING);
    gst_message_unref(message);
    gst_object_unref(source);
    QCOMPARE(log.lines(),
             QStringList{"TRACE GStreamer state change:   src: source old: READY new: PAUSED "
                         "pending: PLAYING"});
}

void TestDiagnostics::stateChangeLineNamesEveryState()
{
    GstMessage* message = gst_message_new_eos(nullptr);
    printGstStateChangeMessage(message, GST_STATE_NULL, GST_STATE_READY, GST_STATE_VOID_PENDING);
    gst_message_unref(message);
    QVERIFY(log.lines().first().endsWith(" old: NULL new: READY pending: VOID_PENDING"));
}

void TestDiagnostics::sourceWithoutNameIsSaid()
{
    GstMessage* message = gst_message_new_eos(nullptr);
    printGstStateChangeMessage(message, GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED);
    gst_message_unref(message);
    QCOMPARE(log.lines(),
             QStringList{"TRACE GStreamer state change:   src: <no name> old: NULL new: READY "
                         "pending: PAUSED"});
}

void TestDiagnostics::stateChangeIsNotComposedBelowTrace()
{
    log.setThreshold(log4cplus::DEBUG_LOG_LEVEL);
    GstMessage* message = gst_message_new_eos(nullptr);
    printGstStateChangeMessage(message, GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED);
    gst_message_unref(message);
    log.setThreshold(log4cplus::TRACE_LOG_LEVEL);
    QCOMPARE(log.lines(), QStringList());
}

void TestDiagnostics::dumpIsNamedByPrefixAndName()
{
    GstElement* pipeline = gst_pipeline_new(nullptr);
    createDotPipelineDump(GST_PIPELINE(pipeline), "prefix", "name", false);
    gst_object_unref(pipeline);
    QCOMPARE(dumps(), QStringList{"prefixname.dot"});
    QCOMPARE(log.lines(), QStringList());
}

void TestDiagnostics::verboseDumpSaysSoInItsName()
{
    GstElement* pipeline = gst_pipeline_new(nullptr);
    createDotPipelineDump(GST_PIPELINE(pipeline), "prefix", "name", true);
    gst_object_unref(pipeline);
    QCOMPARE(dumps(), QStringList{"prefixname-verbose.dot"});
}

void TestDiagnostics::verboseDumpShowsMore()
{
    // A long parameter is cut short in all pictures but the verbose ones.
    GstElement* pipeline = gst_pipeline_new(nullptr);
    GstElement* filter = gst_element_factory_make("capsfilter", nullptr);
    const QByteArray name(200, 'x');
    GstCaps* caps =
        gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, name.constData(), nullptr);
    g_object_set(filter, "caps", caps, nullptr);
    gst_caps_unref(caps);
    gst_bin_add(GST_BIN(pipeline), filter);
    createDotPipelineDump(GST_PIPELINE(pipeline), "short", "", false);
    createDotPipelineDump(GST_PIPELINE(pipeline), "whole", "", true);
    gst_object_unref(pipeline);

    const auto contents = [this](const QString& pattern) {
        QFile file(folder.filePath(folder.entryList({pattern}).value(0)));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    QVERIFY(contents(QStringLiteral("*short.dot")).contains("capsfilter"));
    QVERIFY(!contents(QStringLiteral("*short.dot")).contains(name));
    QVERIFY(contents(QStringLiteral("*whole-verbose.dot")).contains(name));
}

void TestDiagnostics::everyStateChangeOfAPlaybackIsDumped()
{
    TestPlayer player;
    player.startPlayback();
    QTRY_COMPARE_WITH_TIMEOUT(dumps().size(), 3, patience);
    QCOMPARE(
        dumps(),
        (QStringList{"SimplePlayerstatechange-old-NULL-cur-READY-pending-PLAYING.dot",
                     "SimplePlayerstatechange-old-READY-cur-PAUSED-pending-PLAYING.dot",
                     "SimplePlayerstatechange-old-PAUSED-cur-PLAYING-pending-VOID_PENDING.dot"}));
}

void TestDiagnostics::withoutFolderNothingIsWrittenOrLogged()
{
    // GStreamer has read the variable long ago, so another process must show it: this same
    // program without the variable, making one dump.
    QProcess other;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("KOVA_DUMP_WITHOUT_FOLDER"), QStringLiteral("1"));
    other.setProcessEnvironment(environment);
    other.setWorkingDirectory(folder.path());
    other.start(QCoreApplication::applicationFilePath(), QStringList());
    QVERIFY(other.waitForFinished(patience));
    QCOMPARE(other.exitCode(), 0);
    QCOMPARE(other.readAllStandardOutput(), QByteArray("dumped, 0 lines logged\n"));
    QCOMPARE(folder.entryList(QDir::Files), QStringList());
}

/// What the other process of the last test does.
static int dumpWithoutFolder()
{
    qunsetenv("GST_DEBUG_DUMP_DOT_DIR");
    trackGstObjects();
    const LogCapture log;
    GstElement* pipeline = gst_pipeline_new(nullptr);
    createDotPipelineDump(GST_PIPELINE(pipeline), "prefix", "name", false);
    gst_object_unref(pipeline);
    printf("dumped, %d lines logged\n", log.lines().size());
    return 0;
}

int main(int argc, char** argv)
{
    const TestProcess process;
    const QCoreApplication application(argc, argv);
    if (qEnvironmentVariableIsSet("KOVA_DUMP_WITHOUT_FOLDER")) {
        return dumpWithoutFolder();
    }
    TestDiagnostics test;
    trackGstObjects();
    return QTest::qExec(&test, argc, argv);
}
#include "tst_diagnostics.moc"
