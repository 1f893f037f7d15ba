#include "support/LogCapture.h"
#include "support/TestProcess.h"

#include <simplePlayer/Plugins_p.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtTest/QtTest>

#include <gst/gst.h>

/// What of GStreamer is loaded when: in this order, as a process loads once.
class TestPlugins : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void fakePlayerLoadsNothing();
    void firstPlayerLoadsWhatEveryItemNeeds();
    void missingElementIsPassedOver();
};

/// The plug-ins of the elements of a player of a URI, and of the type finders.
static const QSet<QString> wanted = {"playback",      "coreelements", "audioconvert",
                                     "audioresample", "alsa",         "typefindfunctions"};

static QSet<QString> loadedPlugins()
{
    QSet<QString> loaded;
    GList* plugins = gst_registry_get_plugin_list(gst_registry_get());
    for (const GList* item = plugins; item; item = item->next) {
        auto* const plugin = static_cast<GstPlugin*>(item->data);
        if (gst_plugin_is_loaded(plugin)) {
            loaded += gst_plugin_get_name(plugin);
        }
    }
    gst_plugin_list_free(plugins);
    return loaded;
}

/// Whether the class of an element was made, and stays.
static bool hasClass(const char* element)
{
    GstElementFactory* factory = gst_element_factory_find(element);
    const GType type = factory ? gst_element_factory_get_element_type(factory) : 0;
    gst_clear_object(&factory);
    return type != 0 && g_type_class_peek(type);
}

void TestPlugins::initTestCase()
{
    gst_init(nullptr, nullptr);
    if (loadedPlugins().intersects(wanted)) {
        QSKIP("GStreamer has examined the plug-ins in this process, as in an emulator");
    }
}

void TestPlugins::fakePlayerLoadsNothing()
{
    FakePlayer("token").startPlayback();
    QVERIFY(!loadedPlugins().intersects(wanted));
}

void TestPlugins::firstPlayerLoadsWhatEveryItemNeeds()
{
    const UriSimplePlayer player("http://localhost/item.wav", "token", "null");
    QCOMPARE(loadedPlugins() & wanted, wanted);
    for (const char* element :
         {"uridecodebin", "decodebin", "queue", "audioconvert", "audioresample", "alsasink"}) {
        QVERIFY2(hasClass(element), element);
    }
}

void TestPlugins::missingElementIsPassedOver()
{
    const LogCapture log;
    loadElement("no-such-element");
    QCOMPARE(log.lines(), QStringList()); // the start that needs it tells
}

// Without the search for leaks of the other tests, which loads type finders itself.
int main(int argc, char** argv)
{
    const TestProcess process;
    const QCoreApplication application(argc, argv);
    TestPlugins test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_plugins.moc"
