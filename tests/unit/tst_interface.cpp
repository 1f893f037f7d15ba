#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QMetaMethod>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <cstring>
#include <memory>
#include <utility>

/// What clients see of the players, and the binary interface: meta-objects, virtual slots, layout.
class TestInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loopIsFalseAfterConstruction();
    void fakePlayerAnswersTrueToEverything();
    void fakePlayerReportsEveryStopAtOnce();
    void fakePlayerReportsOnTheCallingThread();
    void fakePlayerMayBeDeletedInItsSlot();
    void playersHaveTheParentTheyAreGiven();

    void metaObjectOfSimplePlayerHasThreeSignals();
    void metaObjectOfTheEngineHasOneSignalAndOnePrivateSlot();
    void frontClassesHaveNoMethodsOfTheirOwn();
    void dataClassesHaveNoMethodsOfTheirOwn();
    void streamPlayerHasTwoPrivateSlotsInItsEngine();
    void virtualFunctionsFollowThoseOfQObjectInOrder();
    void classesAddNoVirtualFunctionsOfTheirOwn();
    void constructorsSetEveryMember();
    void membersStandInOrder();
    void classSizesAreThoseOfTheirMembers();
};

namespace {

/// The number of a virtual function in its class's table, from the pointer to it: the Itanium ABI
/// stores the byte offset in the table, plus one where function addresses leave that bit free.
template <typename Function>
std::size_t virtualSlot(Function function)
{
    std::uintptr_t offset = 0;
    std::memcpy(&offset, &function, sizeof offset);
    return offset / sizeof(void*);
}

/// Adds one virtual function to a class: it takes the first slot that the class left free.
template <typename Base>
class Extended : public Base
{
public:
    virtual void added() = 0;
};

template <typename Base>
std::size_t firstFreeSlot()
{
    return virtualSlot(&Extended<Base>::added);
}

/// An object in memory whose every byte was one, so that a flag which its constructor forgot is
/// true, and a pointer not null.
template <typename Object>
class OverOnes
{
public:
    template <typename... Arguments>
    explicit OverOnes(Arguments&&... arguments)
    {
        // Volatile, because writing where an object is about to begin is for nothing otherwise.
        for (volatile unsigned char& byte : memory) {
            byte = 1;
        }
        object = new (memory) Object(std::forward<Arguments>(arguments)...);
    }
    ~OverOnes() { object->~Object(); }
    OverOnes(const OverOnes&) = delete;
    OverOnes& operator=(const OverOnes&) = delete;

    Object* operator->() const { return object; }
    Object* get() const { return object; }

private:
    alignas(Object) unsigned char memory[sizeof(Object)];
    Object* object;
};

template <typename Object, typename Member>
std::size_t offsetIn(const Object& object, const Member& member)
{
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&member) -
                                    reinterpret_cast<const char*>(&object));
}

/// The second member of every player, which nobody reads.
quint32 reservedWord(const SimplePlayer& player)
{
    quint32 word = 1;
    std::memcpy(&word, reinterpret_cast<const char*>(&player) + sizeof(QObject) + 4, sizeof word);
    return word;
}

/// Whether a class's meta-object adds nothing but methods to the one of its base.
bool addsOnlyMethods(const QMetaObject& meta)
{
    return meta.propertyCount() == meta.propertyOffset() &&
           meta.enumeratorCount() == meta.enumeratorOffset() &&
           meta.classInfoCount() == meta.classInfoOffset() && meta.constructorCount() == 0;
}

QByteArray describe(const QMetaMethod& method)
{
    static const char* const types[] = {"method", "signal", "slot", "constructor"};
    static const char* const accesses[] = {"private", "protected", "public"};
    return QByteArray(accesses[method.access()]) + ' ' + types[method.methodType()] + ' ' +
           method.methodSignature() + ' ' + method.parameterNames().join(',');
}

} // namespace

void TestInterface::loopIsFalseAfterConstruction()
{
    QVERIFY(!FakePlayer(QStringLiteral("T")).loop);
    QVERIFY(!TestPlayer().loop);
}

void TestInterface::fakePlayerAnswersTrueToEverything()
{
    FakePlayer player(QStringLiteral("T"));
    const Outcomes outcomes(&player);
    QVERIFY(player.startPlayback());
    QVERIFY(player.pausePlayback());
    QCOMPARE(outcomes.all, QStringList());
    QVERIFY(player.stopPlayback());
}

void TestInterface::fakePlayerReportsEveryStopAtOnce()
{
    FakePlayer player(QStringLiteral("T"));
    const Outcomes outcomes(&player);
    player.stopPlayback();
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
    player.startPlayback();
    player.stopPlayback();
    QCOMPARE(outcomes.all, (QStringList{"stopped T", "stopped T"}));
}

void TestInterface::fakePlayerReportsOnTheCallingThread()
{
    FakePlayer player(QStringLiteral("T"));
    QThread* slotThread = nullptr;
    connect(&player, &SimplePlayer::playbackStopped,
            [&] { slotThread = QThread::currentThread(); });
    QThread* seenInsideTheCall = nullptr;
    const std::unique_ptr<QThread> caller(QThread::create([&] {
        player.stopPlayback();
        seenInsideTheCall = slotThread;
    }));
    caller->start();
    QVERIFY(caller->wait());
    QCOMPARE(seenInsideTheCall, caller.get());
}

void TestInterface::fakePlayerMayBeDeletedInItsSlot()
{
    auto* player = new FakePlayer(QStringLiteral("T"));
    Outcomes outcomes(player);
    outcomes.inSlot = [player] { delete player; };
    // A second receiver reads the token after the player is gone: it must not have gone with it.
    connect(player, &SimplePlayer::playbackStopped, this, [] {});
    QVERIFY(player->stopPlayback());
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
}

void TestInterface::playersHaveTheParentTheyAreGiven()
{
    QObject parent;
    QCOMPARE((new FakePlayer(QStringLiteral("T"), &parent))->parent(), &parent);
    QCOMPARE((new UriSimplePlayer(QString(), QStringLiteral("T"), QString(), &parent))->parent(),
             &parent);
    QCOMPARE((new DataSimplePlayer("data", QStringLiteral("T"), QString(), &parent))->parent(),
             &parent);
    QCOMPARE((new StreamSimplePlayer(QString(), QString(), QStringLiteral("T"), QString(), &parent))
                 ->parent(),
             &parent);
}

void TestInterface::metaObjectOfSimplePlayerHasThreeSignals()
{
    const QMetaObject& meta = SimplePlayer::staticMetaObject;
    QCOMPARE(meta.className(), "SimplePlayer");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 3);
    QVERIFY(addsOnlyMethods(meta));
    QCOMPARE(describe(meta.method(meta.methodOffset())),
             "public signal playbackEnded(QString) token");
    QCOMPARE(describe(meta.method(meta.methodOffset() + 1)),
             "public signal playbackStopped(QString) token");
    QCOMPARE(describe(meta.method(meta.methodOffset() + 2)),
             "public signal playbackErrorReported(QString,QString) token,reason");
}

void TestInterface::metaObjectOfTheEngineHasOneSignalAndOnePrivateSlot()
{
    const QMetaObject& meta = SimplePlayerImpl::staticMetaObject;
    QCOMPARE(meta.className(), "SimplePlayerImpl");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QVERIFY(addsOnlyMethods(meta));
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
    QCOMPARE(describe(meta.method(meta.methodOffset())),
             "public signal sendPlaybackEnded(bool,QString) stop,msg");
    QCOMPARE(describe(meta.method(meta.methodOffset() + 1)),
             "private slot on_sendPlaybackEnded(bool,QString) stop,error");
}

void TestInterface::frontClassesHaveNoMethodsOfTheirOwn()
{
    const QMetaObject& front = UriSimplePlayer::staticMetaObject;
    QCOMPARE(front.className(), "UriSimplePlayer");
    QCOMPARE(front.superClass(), &SimplePlayer::staticMetaObject);
    QCOMPARE(front.methodCount(), front.methodOffset());
    QVERIFY(addsOnlyMethods(front));

    const QMetaObject& engine = UriSimplePlayerImpl::staticMetaObject;
    QCOMPARE(engine.className(), "UriSimplePlayerImpl");
    QCOMPARE(engine.superClass(), &SimplePlayerImpl::staticMetaObject);
    QCOMPARE(engine.methodCount(), engine.methodOffset());
    QVERIFY(addsOnlyMethods(engine));

    QCOMPARE(FakePlayer(QString()).metaObject()->className(), "SimplePlayer");
}

void TestInterface::dataClassesHaveNoMethodsOfTheirOwn()
{
    const QMetaObject& front = DataSimplePlayer::staticMetaObject;
    QCOMPARE(front.className(), "DataSimplePlayer");
    QCOMPARE(front.superClass(), &SimplePlayer::staticMetaObject);
    QCOMPARE(front.methodCount(), front.methodOffset());
    QVERIFY(addsOnlyMethods(front));

    const QMetaObject& engine = DataSimplePlayerImpl::staticMetaObject;
    QCOMPARE(engine.className(), "DataSimplePlayerImpl");
    QCOMPARE(engine.superClass(), &SimplePlayerImpl::staticMetaObject);
    QCOMPARE(engine.methodCount(), engine.methodOffset());
    QVERIFY(addsOnlyMethods(engine));
}

void TestInterface::streamPlayerHasTwoPrivateSlotsInItsEngine()
{
    const QMetaObject& front = StreamSimplePlayer::staticMetaObject;
    QCOMPARE(front.className(), "StreamSimplePlayer");
    QCOMPARE(front.superClass(), &SimplePlayer::staticMetaObject);
    QCOMPARE(front.methodCount(), front.methodOffset());
    QVERIFY(addsOnlyMethods(front));

    const QMetaObject& engine = StreamSimplePlayerImpl::staticMetaObject;
    QCOMPARE(engine.className(), "StreamSimplePlayerImpl");
    QCOMPARE(engine.superClass(), &SimplePlayerImpl::staticMetaObject);
    QVERIFY(addsOnlyMethods(engine));
    QCOMPARE(engine.methodCount() - engine.methodOffset(), 2);
    QCOMPARE(describe(engine.method(engine.methodOffset())),
             "private slot on_readPipeNotifier_activated(int) sock");
    QCOMPARE(describe(engine.method(engine.methodOffset() + 1)),
             "private slot on_receiveNewData(bool) enable");
}

void TestInterface::virtualFunctionsFollowThoseOfQObjectInOrder()
{
    // Twelve slots of QObject: three of its meta-object, two destructors, seven event functions.
    QCOMPARE(virtualSlot(&SimplePlayer::startPlayback), 12U);
    QCOMPARE(virtualSlot(&SimplePlayer::pausePlayback), 13U);
    QCOMPARE(virtualSlot(&SimplePlayer::stopPlayback), 14U);

    QCOMPARE(virtualSlot(&SimplePlayerImpl::startPlayback), 12U);
    QCOMPARE(virtualSlot(&SimplePlayerImpl::pausePlayback), 13U);
    QCOMPARE(virtualSlot(&SimplePlayerImpl::stopPlayback), 14U);
    QCOMPARE(virtualSlot(&SimplePlayerImpl::initPipeline), 15U);
    QCOMPARE(virtualSlot(&SimplePlayerImpl::restartPlayback), 16U);
    QCOMPARE(virtualSlot(&UriSimplePlayerImpl::initPipeline), 15U);
    QCOMPARE(virtualSlot(&UriSimplePlayerImpl::restartPlayback), 16U);
    QCOMPARE(virtualSlot(&DataSimplePlayerImpl::initPipeline), 15U);
    QCOMPARE(virtualSlot(&StreamSimplePlayerImpl::stopPlayback), 14U);
    QCOMPARE(virtualSlot(&StreamSimplePlayerImpl::initPipeline), 15U);
}

void TestInterface::classesAddNoVirtualFunctionsOfTheirOwn()
{
    QCOMPARE(firstFreeSlot<SimplePlayer>(), 15U);
    QCOMPARE(firstFreeSlot<FakePlayer>(), 15U);
    QCOMPARE(firstFreeSlot<UriSimplePlayer>(), 15U);
    QCOMPARE(firstFreeSlot<DataSimplePlayer>(), 15U);
    QCOMPARE(firstFreeSlot<StreamSimplePlayer>(), 15U);

    QCOMPARE(firstFreeSlot<SimplePlayerImpl>(), 17U);
    QCOMPARE(firstFreeSlot<UriSimplePlayerImpl>(), 17U);
    QCOMPARE(firstFreeSlot<DataSimplePlayerImpl>(), 17U);
    QCOMPARE(firstFreeSlot<StreamSimplePlayerImpl>(), 17U);
}

void TestInterface::constructorsSetEveryMember()
{
    const OverOnes<FakePlayer> fake(QStringLiteral("T"));
    QVERIFY(!fake->loop);
    QCOMPARE(reservedWord(*fake.get()), 0U);

    const OverOnes<UriSimplePlayer> front(QString(), QStringLiteral("T"), QString());
    QVERIFY(!front->loop);
    QCOMPARE(reservedWord(*front.get()), 0U);

    const OverOnes<OpenUriEngine> uri(QString(), QStringLiteral("T"), QString(), front.get());
    QCOMPARE(uri->player, front.get());
    QVERIFY(!uri->pipeline);
    QVERIFY(!uri->initialized);
    QVERIFY(!uri->endReported);
    QCOMPARE(uri->uriPlayer, front.get());
    QVERIFY(!uri->uriDecodeBin);
    QVERIFY(!uri->queue);
    QVERIFY(!uri->sink);
    QVERIFY(uri->uri.isNull());

    DataSimplePlayer dataFront("data", QStringLiteral("T"), QString());
    const OverOnes<OpenDataEngine> data("data", QStringLiteral("T"), QString(), &dataFront);
    QCOMPARE(data->dataPlayer, &dataFront);
    QCOMPARE(data->offset, quint64(0));

    StreamSimplePlayer streamFront(QString(), QString(), QStringLiteral("T"), QString());
    const OverOnes<OpenStreamEngine> stream(QString(), QString(), QStringLiteral("T"), QString(),
                                            &streamFront);
    QCOMPARE(stream->streamPlayer, &streamFront);
    QVERIFY(!stream->pipe);
}

void TestInterface::membersStandInOrder()
{
    const FakePlayer fake(QStringLiteral("T"));
    QCOMPARE(offsetIn(fake, fake.loop), sizeof(QObject));

    const TestPlayer player;
    const TestEngine& engine = *player.engine;
    const std::size_t word = sizeof(void*);
    QCOMPARE(offsetIn(engine, engine.player), sizeof(QObject));
    QCOMPARE(offsetIn(engine, engine.pipeline), sizeof(QObject) + word);
    QCOMPARE(offsetIn(engine, engine.token), sizeof(QObject) + 2 * word);
    QCOMPARE(offsetIn(engine, engine.device), sizeof(QObject) + 3 * word);
    QCOMPARE(offsetIn(engine, engine.initialized), sizeof(QObject) + 4 * word);
    QCOMPARE(offsetIn(engine, engine.endReported), sizeof(QObject) + 4 * word + 1);

    UriSimplePlayer front(QString(), QStringLiteral("T"), QString());
    const OpenUriEngine uriEngine(QString(), QStringLiteral("T"), QString(), &front);
    QCOMPARE(offsetIn(uriEngine, uriEngine.uriPlayer), sizeof(SimplePlayerImpl));
    QCOMPARE(offsetIn(uriEngine, uriEngine.uriDecodeBin), sizeof(SimplePlayerImpl) + word);
    QCOMPARE(offsetIn(uriEngine, uriEngine.queue), sizeof(SimplePlayerImpl) + 2 * word);
    QCOMPARE(offsetIn(uriEngine, uriEngine.sink), sizeof(SimplePlayerImpl) + 3 * word);
    QCOMPARE(offsetIn(uriEngine, uriEngine.uri), sizeof(SimplePlayerImpl) + 4 * word);

    DataSimplePlayer dataFront("data", QStringLiteral("T"), QString());
    const OpenDataEngine dataEngine("data", QStringLiteral("T"), QString(), &dataFront);
    QCOMPARE(offsetIn(dataEngine, dataEngine.dataPlayer), sizeof(SimplePlayerImpl));
    QCOMPARE(offsetIn(dataEngine, dataEngine.appsrc), sizeof(SimplePlayerImpl) + word);
    QCOMPARE(offsetIn(dataEngine, dataEngine.decodebin), sizeof(SimplePlayerImpl) + 2 * word);
    QCOMPARE(offsetIn(dataEngine, dataEngine.queue), sizeof(SimplePlayerImpl) + 3 * word);
    QCOMPARE(offsetIn(dataEngine, dataEngine.sink), sizeof(SimplePlayerImpl) + 4 * word);
    QCOMPARE(offsetIn(dataEngine, dataEngine.data), sizeof(SimplePlayerImpl) + 5 * word);
    const std::size_t behindData = sizeof(SimplePlayerImpl) + 6 * word;
    QCOMPARE(offsetIn(dataEngine, dataEngine.offset),
             (behindData + alignof(quint64) - 1) / alignof(quint64) * alignof(quint64));

    StreamSimplePlayer streamFront(QString(), QString(), QStringLiteral("T"), QString());
    const OpenStreamEngine stream(QString(), QString(), QStringLiteral("T"), QString(),
                                  &streamFront);
    QCOMPARE(offsetIn(stream, stream.streamPlayer), sizeof(SimplePlayerImpl));
    QCOMPARE(offsetIn(stream, stream.appsrc), sizeof(SimplePlayerImpl) + word);
    QCOMPARE(offsetIn(stream, stream.decodebin), sizeof(SimplePlayerImpl) + 2 * word);
    QCOMPARE(offsetIn(stream, stream.queue), sizeof(SimplePlayerImpl) + 3 * word);
    QCOMPARE(offsetIn(stream, stream.sink), sizeof(SimplePlayerImpl) + 4 * word);
    QCOMPARE(offsetIn(stream, stream.caps), sizeof(SimplePlayerImpl) + 5 * word);
    QCOMPARE(offsetIn(stream, stream.pipeName), sizeof(SimplePlayerImpl) + 6 * word);
    QCOMPARE(offsetIn(stream, stream.pipe), sizeof(SimplePlayerImpl) + 7 * word);
}

void TestInterface::classSizesAreThoseOfTheirMembers()
{
    QCOMPARE(sizeof(SimplePlayer), sizeof(QObject) + 8);
    QCOMPARE(sizeof(FakePlayer), sizeof(SimplePlayer) + sizeof(QString));
    QCOMPARE(sizeof(UriSimplePlayer), sizeof(SimplePlayer) + sizeof(void*));
    QCOMPARE(sizeof(DataSimplePlayer), sizeof(SimplePlayer) + sizeof(void*));
    QCOMPARE(sizeof(StreamSimplePlayer), sizeof(SimplePlayer) + sizeof(void*));
    QCOMPARE(sizeof(StreamSimplePlayerImpl), sizeof(SimplePlayerImpl) + 8 * sizeof(void*));
    QCOMPARE(sizeof(UriSimplePlayerImpl), sizeof(SimplePlayerImpl) + 5 * sizeof(void*));
}

KOVA_TEST(TestInterface)
#include "tst_interface.moc"
