#include "Program.h"

#include "kit/HttpServer.h"
#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QDir>
#include <QtTest/QtTest>

class TestExpansion : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void playlistIsItsEntries_data();
    void playlistIsItsEntries();
    void entriesCountFromTheFolderOfThePlaylist();
    void webPlaylistPlays();
    void webPlaylistThatCannotBeLoadedFails();
    void playlistsNameFoldersAndPlaylists();
    void playlistWithoutEntriesFails_data();
    void playlistWithoutEntriesFails();
    void folderIsItsAudioFilesInNaturalOrder();
    void folderThatCannotBeReadFails();
};

void TestExpansion::playlistIsItsEntries_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("m3u") << "list.m3u" << QByteArray("a b.wav\n\nsub/c#1.wav\nhttp://host/d.ogg\n");
    QTest::newRow("with titles") << "titles.m3u"
                                 << QByteArray(
                                        "#EXTM3U\r\n#EXTINF:1,A\r\na b.wav\r\n#EXTINF:1,C\r\n"
                                        "sub/c#1.wav\r\nhttp://host/d.ogg\r\n");
    QTest::newRow("m3u8") << "list.m3u8" << QByteArray("a b.wav\nsub/c#1.wav\nhttp://host/d.ogg\n");
    QTest::newRow("upper case") << "LIST.M3U"
                                << QByteArray("a b.wav\nsub/c#1.wav\nhttp://host/d.ogg\n");
    QTest::newRow("pls") << "list.pls"
                         << QByteArray("[playlist]\nNumberOfEntries=3\nFile1=a b.wav\nTitle1=A\n"
                                       "File2=sub/c#1.wav\nFile3=http://host/d.ogg\n");
}

void TestExpansion::playlistIsItsEntries()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, text);
    media::writeFile(name, text);
    Program program({"--fake", "first", name, "last"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped first\nstopped a b.wav\nstopped c#1.wav\n"
                                     "stopped d.ogg\nstopped last\n"));
    QCOMPARE(program.err, QByteArray());
}

void TestExpansion::entriesCountFromTheFolderOfThePlaylist()
{
    const VirtualCard card("card");
    QDir().mkpath(TestProcess::path("lists"));
    media::writeFile("lists/list.m3u", "../one.wav\n");
    Program program({"-d", card.device(), "-t", "X", "lists/list.m3u"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended X\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestExpansion::webPlaylistPlays()
{
    const VirtualCard card("card");
    const HttpServer server;
    media::writeFile("web.pls",
                     "[playlist]\nFile1=one.wav\nFile2=" + server.url("two.wav").toUtf8() + '\n');
    Program program({"-d", card.device(), server.url("web.pls")});
    // GStreamer's HTTP source leaves a few bytes behind, which would fail the program here.
    program.set("ASAN_OPTIONS", "detect_leaks=0");
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\nended two.wav\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
    QVERIFY(card.samples().indexOf(samplesOfTwo) >= samplesOfOne.size());
}

void TestExpansion::webPlaylistThatCannotBeLoadedFails()
{
    const HttpServer server;
    Program missing({"-d", "null", server.url("missing.m3u")});
    missing.set("ASAN_OPTIONS", "detect_leaks=0");
    QCOMPARE(missing.finish(), 1);
    QVERIFY2(missing.out.startsWith("error missing.m3u: the playlist could not be loaded: Not"),
             missing.out);
    Program withoutSource({"-d", "null", server.url("list.m3u")});
    offerPlugins(withoutSource, {});
    QCOMPARE(withoutSource.finish(), 1);
    QCOMPARE(withoutSource.out, QByteArray("error list.m3u: the playlist could not be loaded: "
                                           "nothing here loads it (kova-play --check)\n"));
}

void TestExpansion::playlistsNameFoldersAndPlaylists()
{
    QDir().mkpath(TestProcess::path("album"));
    media::writeFile("album/1.wav", "");
    media::writeFile("inner.m3u", "album\n");
    media::writeFile("outer.m3u", "inner.m3u\ntwo.wav\n");
    Program program({"--fake", "outer.m3u"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped 1.wav\nstopped two.wav\n"));
}

void TestExpansion::playlistWithoutEntriesFails_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QByteArray>("out");
    QTest::newRow("empty") << "empty.m3u"
                           << QByteArray("error empty.m3u: the playlist has no entries\n");
    QTest::newRow("no playlist") << "other.pls"
                                 << QByteArray("error other.pls: the playlist has no entries\n");
    QTest::newRow("itself") << "itself.m3u"
                            << QByteArray("error itself.m3u: there are too many playlists in each "
                                          "other\n");
    QTest::newRow("missing") << "missing.m3u"
                             << QByteArray("error missing.m3u: file does not exist\n");
}

void TestExpansion::playlistWithoutEntriesFails()
{
    QFETCH(QString, item);
    QFETCH(QByteArray, out);
    media::writeFile("empty.m3u", "#EXTM3U\n");
    media::writeFile("other.pls", "This is no playlist.\n");
    media::writeFile("itself.m3u", "itself.m3u\n");
    Program program({"-d", "null", item});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, out);
}

void TestExpansion::folderIsItsAudioFilesInNaturalOrder()
{
    QDir().mkpath(TestProcess::path("music/folder.wav"));
    for (const char* name : {"track 10.wav", "track 9.ogg", "track 1.mp3", "cover.jpg", "list.m3u",
                             ".hidden.wav", "a.flac"}) {
        media::writeFile(QString("music/") + name, "");
    }
    for (const char* folder : {"music", "music/"}) {
        Program program({"--fake", folder});
        QCOMPARE(program.finish(), 0);
        QCOMPARE(program.out, QByteArray("stopped a.flac\nstopped track 1.mp3\n"
                                         "stopped track 9.ogg\nstopped track 10.wav\n"));
    }
}

void TestExpansion::folderThatCannotBeReadFails()
{
    QDir().mkpath(TestProcess::path("closed"));
    QFile(TestProcess::path("closed")).setPermissions(QFile::Permissions());
    Program program({"-d", "null", "closed"});
    bindToPermissions(program);
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error closed: the folder cannot be read\n"));
    QCOMPARE(program.err, QByteArray("kova-play: look at the permissions of 'closed'\n"));
}

KOVA_TEST(TestExpansion)
#include "tst_expansion.moc"
