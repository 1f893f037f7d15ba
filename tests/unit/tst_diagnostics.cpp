#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/Logging_p.h>

#include <QtCore/QDir>
#include <QtTest/QtTest>

static log4cplus::Logger logger = log4cplus::Logger::getInstance("SimplePlayer");

/// Log lines, the state-change line among them, and the pictures of pipelines.
class TestDiagnostics : public QObject
{
    Q_OBJECT

public:
    TestDiagnostics();

private Q_SLOTS:
    void init();
    void cleanup();

    void lineIsOneText();
    void lineOfADisabledLevelEvaluatesNothing();

    void stateChangeLineHasItsThreeBlanks();
    void stateChangeLineNamesEveryState();
    void sourceWithoutNameIsNamedAsSuch_data();
    void sourceWithoutNameIsNamedAsSuch();
    void stateChangeIsNotComposedBelowTrace();

    void dumpIsNamedByPrefixAndName();
    void verboseDumpSaysSoInItsName();
    void dumpShowsParametersStatesAndCaps();
    void verboseDumpShowsMore();
    void everyStateChangeOfAPlaybackIsDumped();
    void dumpLogsNothing();
    void withoutFolderNothingIsWrittenOrLogged();

private:
    /// The names of the dumps without GStreamer's timestamp, in the order of their writing.
    QStringList dumps() const;
    /// The content of the dump whose name ends in `end`.
    QByteArray dump(const QString& end) const;

    QDir folder;
    LogCapture log;
};

/// The variable that makes a process run this test without a folder for dumps.
static const QString withoutFolder = QStringLiteral("KOVA_WITHOUT_DUMP_FOLDER");

// GStreamer reads the variable when it is initialised, which is later.
TestDiagnostics::TestDiagnostics() : folder(TestProcess::path(QStringLiteral("dumps")))
{
    QDir().mkpath(folder.path());
    if (!qEnvironmentVariableIsSet(qPrintable(withoutFolder))) {
        qputenv("GST_DEBUG_DUMP_DOT_DIR", folder.path().toLocal8Bit());
    }
}

void TestDiagnostics::init()
{
    for (const QString& file : folder.entryList(QDir::Files)) {
        QVERIFY(folder.remove(file));
    }
    log.setThreshold(log4cplus::TRACE_LOG_LEVEL);
    log.clear();
}

void TestDiagnostics::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

QStringList TestDiagnostics::dumps() const
{
    QStringList names;
    for (const QString& file : folder.entryList(QDir::Files, QDir::Name)) {
        names.append(file.mid(file.indexOf(QLatin1Char('-')) + 1));
    }
    return names;
}

QByteArray TestDiagnostics::dump(const QString& end) const
{
    QFile file(folder.filePath(folder.entryList({QLatin1Char('*') + end}).value(0)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void TestDiagnostics::lineIsOneText()
{
    LOG_LINE(INFO, "text ", std::string("string "), QString::fromUtf8("\xc3\xa4 "), 1234567, true);
    QCOMPARE(log.lines(), QStringList{QString::fromUtf8("INFO text string \xc3\xa4 12345671")});
}

void TestDiagnostics::lineOfADisabledLevelEvaluatesNothing()
{
    int evaluated = 0;
    log.setThreshold(log4cplus::DEBUG_LOG_LEVEL);
    LOG_LINE(TRACE, ++evaluated);
    LOG_ENTER(TRACE, ++evaluated);
    LOG_LEAVE(TRACE, ++evaluated);
    QCOMPARE(evaluated, 0);
    LOG_LINE(DEBUG, ++evaluated);
    QCOMPARE(evaluated, 1);
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

void TestDiagnostics::sourceWithoutNameIsNamedAsSuch_data()
{
    QTest::addColumn<bool>("hasSource");
    QTest::newRow("source without a name") << true;
    QTest::newRow("no source") << false;
}

void TestDiagnostics::sourceWithoutNameIsNamedAsSuch()
{
    QFETCH(bool, hasSource);
    GstElement* source = nullptr;
    if (hasSource) {
        // GStreamer names every object, but the member is open to all.
        source = gst_element_factory_make("fakesink", nullptr);
        g_free(GST_OBJECT_NAME(source));
        GST_OBJECT_NAME(source) = nullptr;
    }
    GstMessage* message = gst_message_new_eos(GST_OBJECT(source));
    printGstStateChangeMessage(message, GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED);
    gst_message_unref(message);
    gst_clear_object(&source);
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

void TestDiagnostics::dumpShowsParametersStatesAndCaps()
{
    GstElement* pipeline = gst_parse_launch(
        "fakesrc num-buffers=7 ! capsfilter caps=audio/x-raw,rate=8000 ! fakesink", nullptr);
    gst_element_set_state(pipeline, GST_STATE_PAUSED);
    QCOMPARE(settledState(pipeline), GST_STATE_PAUSED);
    createDotPipelineDump(GST_PIPELINE(pipeline), "usual", "", false);
    createDotPipelineDump(GST_PIPELINE(pipeline), "whole", "", true);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    for (const char* name : {"usual.dot", "whole-verbose.dot"}) {
        const QByteArray picture = dump(QString::fromLatin1(name));
        QVERIFY(picture.contains("num-buffers=7")); // a parameter that is not the default
        QVERIFY(picture.contains("[=]\\nnum-"));    // the state, "paused"
        QVERIFY(picture.contains("rate: 8000"));    // caps in full, on the line between two pads
    }
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

    QVERIFY(dump(QStringLiteral("short.dot")).contains("capsfilter"));
    QVERIFY(!dump(QStringLiteral("short.dot")).contains(name));
    QVERIFY(dump(QStringLiteral("whole-verbose.dot")).contains(name));
}

void TestDiagnostics::everyStateChangeOfAPlaybackIsDumped()
{
    log.setThreshold(log4cplus::INFO_LOG_LEVEL); // pictures do not depend on what is logged
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
    // GStreamer has read the variable already: another process runs dumpLogsNothing() without it.
    QProcess other;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(withoutFolder, QStringLiteral("1"));
    other.setProcessEnvironment(environment);
    other.setWorkingDirectory(folder.path());
    other.start(TestProcess::startable(QCoreApplication::applicationFilePath()),
                {QCoreApplication::applicationName(), "dumpLogsNothing"});
    QVERIFY(other.waitForFinished(patience));
    QVERIFY2(other.exitCode() == 0, other.readAllStandardOutput().constData());
    QCOMPARE(folder.entryList(QDir::Files), QStringList());
}

void TestDiagnostics::dumpLogsNothing()
{
    log.clear();
    GstElement* pipeline = gst_pipeline_new(nullptr);
    createDotPipelineDump(GST_PIPELINE(pipeline), "prefix", "name", false);
    gst_object_unref(pipeline);
    QCOMPARE(log.lines(), QStringList());
}

KOVA_TEST(TestDiagnostics)
#include "tst_diagnostics.moc"
