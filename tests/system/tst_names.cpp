#include "kit/Media.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QDir>
#include <QtTest/QtTest>

#include <array>

#include <glib.h>
#include <linux/capability.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

/// Local files: the forms of their names, the characters in them, and files that cannot be read.
class TestNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void absolutePathPlays();
    void relativePathCountsFromTheFolderOfTheConstruction();
    void fileUriPlays();
    void fileUriOfRelativePathPlays();
    void symbolicLinkPlays();

    void charactersOfFileNames_data();
    void charactersOfFileNames();
    void percentEscapeNamesTheFileWithTheCharacter();
    void percentEscapeIsNotDecodedWhenLookingForTheFile();
    void queryOrFragmentIsDropped_data();
    void queryOrFragmentIsDropped();

    void missingFileDoesNotStart_data();
    void missingFileDoesNotStart();
    void fileRemovedBeforeTheStartIsReported();
    void directoryIsReported();
    void unreadableFileIsReported();
    void socketIsReported();

private:
    QStringList play(const QString& item);

    media::Pcm sound;
    QByteArray played; ///< by the last play()
    bool started = false;
};

void TestNames::initTestCase()
{
    sound = media::noise(4800);
}

void TestNames::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

/// Plays `item` on a card of its own. @return all outcomes
QStringList TestNames::play(const QString& item)
{
    VirtualCard card(QStringLiteral("names"));
    PlayerProbe probe(new UriSimplePlayer(item, QStringLiteral("token"), card.device()));
    started = probe->startPlayback();
    const QStringList outcomes = probe.finish();
    played = media::withoutTrailingSilence(card.samples(), sound.frameSize());
    return outcomes;
}

static QString makeFolder(const QString& name)
{
    const QString path = TestProcess::path(name);
    if (!QDir().mkpath(path)) {
        qFatal("cannot make %s", qPrintable(path));
    }
    return path;
}

// ---- Ways to name a file -----------------------------------------------------------------------

void TestNames::absolutePathPlays()
{
    QCOMPARE(play(media::writeWav("absolute.wav", sound)), QStringList("ended token"));
    QCOMPARE(played, sound.samples);
}

void TestNames::relativePathCountsFromTheFolderOfTheConstruction()
{
    media::writeWav("relative.wav", sound);
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(TestProcess::path()));
    VirtualCard card("relative");
    PlayerProbe probe(new UriSimplePlayer("./relative.wav", "token", card.device()));
    QVERIFY(QDir::setCurrent(before));

    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), QStringList("ended token"));
    QCOMPARE(media::withoutTrailingSilence(card.samples(), sound.frameSize()), sound.samples);
}

void TestNames::fileUriPlays()
{
    QCOMPARE(play("file://" + media::writeWav("uri.wav", sound)), QStringList("ended token"));
    QCOMPARE(played, sound.samples);
}

void TestNames::fileUriOfRelativePathPlays()
{
    media::writeWav("relative uri.wav", sound);
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(TestProcess::path()));
    const QStringList outcomes = play("file://relative uri.wav");
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(outcomes, QStringList("ended token"));
    QCOMPARE(played, sound.samples);
}

void TestNames::symbolicLinkPlays()
{
    const QString link = TestProcess::path("link.wav");
    QVERIFY(QFile::link(media::writeWav("target.wav", sound), link));
    QCOMPARE(play(link), QStringList("ended token"));
    QCOMPARE(played, sound.samples);
}

// ---- Characters --------------------------------------------------------------------------------

static const char* const notFound = "error token: Resource not found.";
static const char* const notOpened = "error token: Could not open resource for reading.";

/// From GLib 2.78 on, the query of a URI is no part of the file's name. The fragment never was.
static bool dropsQuery()
{
    return !glib_check_version(2, 78, 0);
}

void TestNames::charactersOfFileNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("outcome");

    const auto row = [](const char* what, const char* name, const QString& outcome) {
        QTest::newRow(what) << QString::fromUtf8(name) << outcome;
    };
    const char* const plays = "ended token";
    row("blank", "a b.wav", plays);
    row("umlauts", "\xc3\xa4\xc3\xb6\xc3\xbc\xc3\x9f.wav", plays);
    row("beyond Latin", "\xe2\x82\xac \xe9\x9f\xb3\xe4\xb9\x90.wav", plays);
    row("question mark", "a?b.wav", dropsQuery() ? notFound : plays);
    row("plus", "a+b.wav", plays);
    row("ampersand", "a&b=c.wav", plays);
    row("colon", "a:b.wav", plays);
    row("single quote", "a'b.wav", plays);
    row("double quote", "a\"b.wav", plays);
    row("backslash", "a\\b.wav", plays);
    row("brackets", "[a] {b} <c>.wav", plays);
    row("line break", "a\nb.wav", plays);
    row("no suffix", "a", plays);
    row("hash", "a#b.wav", notFound);
    row("hash first", "#.wav",
        dropsQuery()
            ? "error token: \"" + TestProcess::path("characters hash first/") + "\" is a directory."
            : QString(notOpened));
    row("percent and two digits", "a%20b.wav", notFound);
    row("percent and UTF-8", "%C3%A4.wav", notFound);
    row("bare percent", "100%.wav", notOpened);
    row("percent and no digits", "a%zz.wav", notOpened);
    row("percent and a slash's code", "a%2Fb.wav", notOpened);
    row("percent and NUL's code", "a%00b.wav", notOpened);
}

void TestNames::charactersOfFileNames()
{
    QFETCH(QString, name);
    QFETCH(QString, outcome);
    // A folder for each, so that no other name's file can be found by mistake.
    const QString folder = QStringLiteral("characters %1").arg(QTest::currentDataTag());
    makeFolder(folder);
    const bool plays = outcome.startsWith(QLatin1String("ended"));

    QCOMPARE(play(media::writeWav(folder + '/' + name, sound)), QStringList(outcome));
    QCOMPARE(started, plays);
    QCOMPARE(played, plays ? sound.samples : QByteArray());
}

void TestNames::percentEscapeNamesTheFileWithTheCharacter()
{
    // The check looks for the literal name, but GStreamer decodes the escape.
    const media::Pcm other = media::noise(4800, 2);
    makeFolder("escape");
    media::writeWav("escape/a b.wav", other);
    QCOMPARE(play(media::writeWav("escape/a%20b.wav", sound)), QStringList("ended token"));
    QCOMPARE(played, other.samples);
}

void TestNames::percentEscapeIsNotDecodedWhenLookingForTheFile()
{
    makeFolder("unescaped");
    media::writeWav("unescaped/a b.wav", sound);
    PlayerProbe probe(
        new UriSimplePlayer("file://" + TestProcess::path("unescaped/a%20b.wav"), "token", "null"));
    QVERIFY(!probe->startPlayback());
    QCOMPARE(probe.destroy(), QStringList());
}

void TestNames::queryOrFragmentIsDropped_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("playsOther");
    QTest::newRow("query") << "a?b.wav" << dropsQuery();
    QTest::newRow("fragment") << "a#b.wav" << true;
}

void TestNames::queryOrFragmentIsDropped()
{
    QFETCH(QString, name);
    QFETCH(bool, playsOther);
    const QString folder = QStringLiteral("dropped %1/").arg(QTest::currentDataTag());
    const media::Pcm other = media::noise(4800, 2);
    makeFolder(folder);
    media::writeWav(folder + "a", other);
    QCOMPARE(play(media::writeWav(folder + name, sound)), QStringList("ended token"));
    QCOMPARE(played, playsOther ? other.samples : sound.samples);
}

// ---- What is no readable file ------------------------------------------------------------------

void TestNames::missingFileDoesNotStart_data()
{
    QTest::addColumn<QString>("item");
    QTest::newRow("empty") << QString();
    QTest::newRow("path") << TestProcess::path("missing.wav");
    QTest::newRow("file URI") << QStringLiteral("file://") + TestProcess::path("missing.wav");
    QTest::newRow("upper case web scheme") << QStringLiteral("HTTP://127.0.0.1/a.wav");
    QTest::newRow("other scheme") << QStringLiteral("ftp://127.0.0.1/a.wav");
    QTest::newRow("dangling link") << [] {
        QFile::link(TestProcess::path("missing.wav"), TestProcess::path("dangling.wav"));
        return TestProcess::path("dangling.wav");
    }();
}

void TestNames::missingFileDoesNotStart()
{
    QFETCH(QString, item);
    PlayerProbe probe(new UriSimplePlayer(item, "token", "null"));
    QVERIFY(!probe->startPlayback());
    deliverQueuedEvents();
    QCOMPARE(probe.outcomes.all, QStringList());
    QVERIFY(!probe->stopPlayback());
    QCOMPARE(probe.finish(), QStringList("error token: Not initialized"));
}

void TestNames::fileRemovedBeforeTheStartIsReported()
{
    const QString file = media::writeWav("removed.wav", sound);
    PlayerProbe probe(new UriSimplePlayer(file, "token", "null"));
    QVERIFY(QFile::remove(file));
    QVERIFY(!probe->startPlayback());
    QCOMPARE(probe.finish(), QStringList(notFound));
}

void TestNames::directoryIsReported()
{
    const QString folder = makeFolder("a folder");
    QCOMPARE(play(folder), QStringList("error token: \"" + folder + "\" is a directory."));
    QVERIFY(!started);
}

namespace {

/// Takes root's right to read every file from the calling thread while it exists.
class GrantedRightsOnly
{
public:
    GrantedRightsOnly()
    {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        if (::syscall(SYS_capget, &header, before.data()) != 0) {
            qFatal("cannot read the capabilities of this thread");
        }
        auto reduced = before;
        reduced[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        set(reduced);
    }
    ~GrantedRightsOnly() { set(before); }
    GrantedRightsOnly(const GrantedRightsOnly&) = delete;
    GrantedRightsOnly& operator=(const GrantedRightsOnly&) = delete;

private:
    using Sets = std::array<__user_cap_data_struct, 2>;

    static void set(const Sets& sets)
    {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        if (::syscall(SYS_capset, &header, sets.data()) != 0) {
            qFatal("cannot set the capabilities of this thread");
        }
    }

    Sets before{};
};

} // namespace

void TestNames::unreadableFileIsReported()
{
    const QString file = media::writeWav("unreadable.wav", sound);
    QVERIFY(QFile::setPermissions(file, QFile::Permissions()));
    PlayerProbe probe(new UriSimplePlayer(file, "token", "null"));
    {
        const GrantedRightsOnly rights;
        QVERIFY(!probe->startPlayback());
    }
    QCOMPARE(probe.finish(),
             QStringList("error token: Could not open file \"" + file + "\" for reading."));
}

void TestNames::socketIsReported()
{
    const QString file = TestProcess::path("socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, QFile::encodeName(file).constData(), sizeof address.sun_path);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    QVERIFY(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);

    QCOMPARE(play(file),
             QStringList("error token: Could not open file \"" + file + "\" for reading."));
    QVERIFY(!started);
    ::close(socket);
}

KOVA_TEST(TestNames)
#include "tst_names.moc"
