#include "kit/TestMain.h"

#include <tools/kova-play/Registry.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <gst/gst.h>

/// Versions of GStreamer that kova-play warns about.
class TestRegistry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { gst_init(nullptr, nullptr); }
    void versionWithBrokenSinkIsKnown();
    void outdatedFileThatStaysIsOfNoUse();
};

void TestRegistry::versionWithBrokenSinkIsKnown()
{
    QVERIFY(problemWithGStreamer(1, 22, 1).contains("alsasink plays nothing after a stop"));
    for (const unsigned micro : {0U, 2U, 12U}) {
        QCOMPARE(problemWithGStreamer(1, 22, micro), QString());
    }
    QCOMPARE(problemWithGStreamer(1, 18, 1), QString());
}

void TestRegistry::outdatedFileThatStaysIsOfNoUse()
{
    const QTemporaryDir folder;
    const QByteArray former = qgetenv("GST_REGISTRY");
    qputenv("GST_REGISTRY", folder.filePath("registry.bin").toLocal8Bit());
    QFile file(folder.filePath("registry.bin"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    const Registry registry;
    const Registry::Report outdated = registry.report(true);
    const Registry::Report fresh = registry.report(false);
    qputenv("GST_REGISTRY", former);
    QVERIFY(outdated.costs);
    QVERIFY(outdated.text.contains("out of date and not writable: each start scans all plug-ins"));
    QVERIFY(!fresh.costs);
    QVERIFY(fresh.text.endsWith("plug-ins, fresh, writable"));
}

KOVA_TEST(TestRegistry)
#include "tst_registry.moc"
