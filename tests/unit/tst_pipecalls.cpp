#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <core/KovaNamedPipe.h>
#include <simplePlayer/StreamSimplePlayer.h>

#include <QtCore/QSocketNotifier>
#include <QtTest/QtTest>

#include <unistd.h>

/// What the stream engine calls of its named pipe, and in which order. The pipe of this program
/// takes the place of the one in libkova_api.so.
class TestPipeCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void constructionPreparesThePipeInOrder();
    void failedCreationDoesNotPreventTheOpening();
    void pipeThatCannotBeOpenedIsDeletedLater();
    void stopClosesThePipe();
};

namespace {

QStringList calls;
bool createSucceeds = true;
bool openSucceeds = true;
int openPipes = 0; ///< objects that exist

QString flag(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

// ---- The pipe of this program ------------------------------------------------------------------

KovaNamedPipe::KovaNamedPipe(const QString& name, int id, QObject* parent, bool removeOnClose)
    : QObject(parent), path(name), number(id), removesFifo(removeOnClose)
{
    ++openPipes;
    calls << QStringLiteral("construct %1 %2 %3 %4")
                 .arg(path)
                 .arg(number)
                 .arg(parent ? parent->metaObject()->className() : "none", flag(removesFifo));
}

KovaNamedPipe::~KovaNamedPipe()
{
    --openPipes;
}

bool KovaNamedPipe::create()
{
    calls << QStringLiteral("create");
    return createSucceeds;
}

bool KovaNamedPipe::open(bool waitForWriter)
{
    calls << "open " + flag(waitForWriter);
    if (openSucceeds) {
        notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
        notifier->setEnabled(false);
    }
    return openSucceeds;
}

void KovaNamedPipe::setNonBlock(bool enable)
{
    calls << "setNonBlock " + flag(enable);
}

int KovaNamedPipe::read(const char* /*data*/, int /*size*/)
{
    return 0;
}

void KovaNamedPipe::close()
{
    calls << QStringLiteral("close");
}

QSocketNotifier* KovaNamedPipe::readNotifier()
{
    return notifier;
}

// ---- Tests -------------------------------------------------------------------------------------

void TestPipeCalls::init()
{
    calls.clear();
    createSucceeds = true;
    openSucceeds = true;
}

static const QStringList preparation{"construct the-fifo 1 StreamSimplePlayerImpl false",
                                     "setNonBlock true", "create", "open false"};

void TestPipeCalls::constructionPreparesThePipeInOrder()
{
    const StreamSimplePlayer player("the-fifo", QString(), "T", QString());
    QCOMPARE(calls, preparation);
    QVERIFY(player.findChild<QSocketNotifier*>()->isEnabled());
}

void TestPipeCalls::failedCreationDoesNotPreventTheOpening()
{
    createSucceeds = false;
    const StreamSimplePlayer player("the-fifo", QString(), "T", QString());
    QCOMPARE(calls, preparation);
    QVERIFY(player.findChild<QSocketNotifier*>()->isEnabled());
}

void TestPipeCalls::pipeThatCannotBeOpenedIsDeletedLater()
{
    openSucceeds = false;
    const StreamSimplePlayer player("the-fifo", QString(), "T", QString());
    QCOMPARE(calls, preparation); // not closed: it is not open
    QCOMPARE(openPipes, 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(openPipes, 0);
}

void TestPipeCalls::stopClosesThePipe()
{
    StreamSimplePlayer player("the-fifo", QString(), "T", QString());
    player.stopPlayback();
    QCOMPARE(calls, preparation + QStringList("close"));
    QCOMPARE(openPipes, 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(openPipes, 0);
}

KOVA_TEST(TestPipeCalls)
#include "tst_pipecalls.moc"
