#include "Program.h"

#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QDir>
#include <QtTest/QtTest>

class TestGraphs : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void graphsBecomePictures();
    void graphsStayDotFilesWithoutGraphviz();
    void dotThatFailsIsReported_data();
    void dotThatFailsIsReported();
    void graphsOfNothingAreNoGraphs();
    void graphsNeedAFolderThatCanBeWritten();
};

/// The names in the folder "pictures" that end with `suffix`, without it.
static QStringList pictures(const QString& suffix)
{
    QStringList names;
    for (const QString& file : QDir(TestProcess::path("pictures")).entryList({'*' + suffix})) {
        names << file.chopped(suffix.size());
    }
    return names;
}

static void makePicturesFolderWithFormerGraph()
{
    QDir(TestProcess::path("pictures")).removeRecursively();
    QDir().mkpath(TestProcess::path("pictures"));
    media::writeFile("pictures/former.dot", "digraph former {}\n");
}

void TestGraphs::graphsBecomePictures()
{
    const VirtualCard card("card");
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    QStringList graphs = pictures(".dot");
    QVERIFY(graphs.removeOne("former"));
    QVERIFY(graphs.size() >= 3);
    QCOMPARE(pictures(".svg"), graphs);
    QVERIFY(media::readFile(TestProcess::path("pictures/" + graphs.first() + ".svg"))
                .contains("UriDecodeBin"));
    QVERIFY2(program.err.startsWith(QByteArray("kova-play: ") + QByteArray::number(graphs.size()) +
                                    " graphs in "),
             program.err);
    QVERIFY2(program.err.endsWith("/pictures', as .dot and .svg files\n"), program.err);
}

void TestGraphs::graphsStayDotFilesWithoutGraphviz()
{
    const VirtualCard card("card");
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "-d", card.device(), one});
    program.set("PATH", TestProcess::path("folder"));
    QCOMPARE(program.finish(), 0);
    QVERIFY(pictures(".dot").size() >= 4);
    QCOMPARE(pictures(".svg"), QStringList());
    QVERIFY2(program.err.endsWith("/pictures', as .dot files only: for pictures, apt-get install "
                                  "graphviz, then dot -Tsvg -O FILE\n"),
             program.err);
}

/// Puts a `dot` of its own in front of the machine's.
static void replaceDot(Program& program, const QByteArray& script)
{
    QDir().mkpath(TestProcess::path("programs"));
    QFile dot(media::writeFile("programs/dot", script));
    dot.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    program.set("PATH", TestProcess::path("programs") + ':' + qEnvironmentVariable("PATH"));
}

void TestGraphs::dotThatFailsIsReported_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("fails") << QByteArray("#!/bin/sh\necho no ink >&2\nexit 3\n")
                           << QByteArray("': no ink\n");
    QTest::newRow("dies") << QByteArray("#!/bin/sh\necho no paper >&2\nkill -9 $$\n")
                          << QByteArray("': no paper\n");
    QTest::newRow("is no program")
        << QByteArray("#!/nonexistent/interpreter\n") << QByteArray("No such file or directory\n");
}

void TestGraphs::dotThatFailsIsReported()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, reason);
    const VirtualCard card("card");
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "-d", card.device(), one});
    replaceDot(program, script);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    QVERIFY2(program.err.startsWith("kova-play: dot made no picture of '"), program.err);
    QVERIFY2(program.err.endsWith(reason), program.err);
    QCOMPARE(program.err.count('\n'), 1); // the first picture that fails is the last one
}

void TestGraphs::graphsOfNothingAreNoGraphs()
{
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "--fake", "a"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.err, QByteArray("kova-play: no pipeline was drawn: nothing was played\n"));
    QCOMPARE(pictures(".svg"), QStringList());
}

void TestGraphs::graphsNeedAFolderThatCanBeWritten()
{
    QDir().mkpath(TestProcess::path("locked"));
    QVERIFY(QFile(TestProcess::path("locked")).setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    Program program({"--graphs", "locked", "--fake", "a"});
    bindToPermissions(program);
    QCOMPARE(program.finish(), 2);
    QCOMPARE(program.out, QByteArray());
    QVERIFY2(program.err.contains("locked' cannot be made or written: name another folder"),
             program.err);
}

KOVA_TEST(TestGraphs)
#include "tst_graphs.moc"
