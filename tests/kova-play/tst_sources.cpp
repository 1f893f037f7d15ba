#include "Program.h"

#include "kit/Media.h"
#include "kit/PipeWriter.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

#include <csignal>

#include <sys/stat.h>

class TestSources : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void filePlaysFromMemory();
    void standardInputPlaysFromMemory();
    void standardInputPlaysWhileItArrives();
    void endlessInputPlays();
    void inputThatIsTooLargeFails_data();
    void inputThatIsTooLargeFails();
    void terminalIsNoInput();
    void standardInputThatIsEmptyFails();
    void pipePlaysWhatAWriterWrites();
    void pipeOfRawSamplesPlaysWithCaps();
    void sourceThatCannotBeReadFails_data();
    void sourceThatCannotBeReadFails();
    void itemsPlayBeforeDataBeforePipes();
};

void TestSources::filePlaysFromMemory()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "--data", two, "-"});
    program.setStandardInputFile(one);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended -\nended two.wav\n"));
    QCOMPARE(program.err, QByteArray());
    QVERIFY(card.samples().startsWith(samplesOfOne));
    QVERIFY(card.samples().indexOf(samplesOfTwo) >= samplesOfOne.size());
}

void TestSources::standardInputPlaysFromMemory()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "--data", "-"});
    program.setStandardInputFile(one);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended -\n"));
    QCOMPARE(program.err, QByteArray());
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestSources::standardInputPlaysWhileItArrives()
{
    const VirtualCard card("card");
    const QString fifo = TestProcess::path("input.fifo");
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    PipeWriter::Manner manner;
    manner.chunk = PipeWriter::atomic;
    manner.pauseMs = 1;
    manner.keepOpen = true;
    PipeWriter writer(fifo, media::readFile(one), manner);
    Program program({"-d", card.device(), "-"});
    program.setStandardInputFile(fifo);
    program.begin();
    QVERIFY(card.waitForFrames(samplesOfOne.size() / 8)); // half of it, and its end is not known
    QVERIFY(writer.waitForWritten());
    QVERIFY(writer.close());
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended -\n"));
    QCOMPARE(program.err, QByteArray());
    QVERIFY(media::withoutTrailingSilence(card.samples(), 4) == samplesOfOne);
}

void TestSources::endlessInputPlays()
{
    const VirtualCard card("card");
    Program program(
        {"-d", card.device(), "-", "--caps",
         "audio/x-unaligned-raw,format=S16LE,rate=48000,channels=2,layout=interleaved"});
    program.setStandardInputFile("/dev/zero");
    program.begin();
    QVERIFY(card.waitForFrames(96000));
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped -\n"));
    QCOMPARE(program.err, QByteArray());
}

void TestSources::inputThatIsTooLargeFails_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("hint");
    QTest::newRow("standard input")
        << (qint64(1) << 30) + 1 << "-" << QByteArray("error -: it is larger than 1 GiB\n")
        << QByteArray("kova-play: kova-play - plays standard input while it arrives\n");
    QTest::newRow("file") << (qint64(1) << 31) << "large.wav"
                          << QByteArray("error large.wav: it is larger than 2 GiB\n")
                          << QByteArray("kova-play: 'large.wav' could not be read into memory\n");
}

void TestSources::inputThatIsTooLargeFails()
{
    QFETCH(qint64, size);
    QFETCH(QString, name);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, hint);
    const QString path = media::writeFile("large.wav", "");
    QVERIFY(QFile::resize(path, size)); // without blocks on the disk
    Program program({"-d", "null", "--data", name});
    program.setStandardInputFile(path);
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, out);
    QCOMPARE(program.err, hint);
    QVERIFY(QFile::remove(path));
}

void TestSources::terminalIsNoInput()
{
    TerminalProgram program({"-"});
    program.begin();
    QCOMPARE(program.finish(), 2);
    QVERIFY(program.waitForText("Standard input is a terminal: send a file or the output"));
}

void TestSources::standardInputThatIsEmptyFails()
{
    Program program({"-d", "null", "-"});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error -: Stream doesn't contain enough data.\n"));
}

void TestSources::pipePlaysWhatAWriterWrites()
{
    const VirtualCard card("card");
    const QString fifo = TestProcess::path("stream.fifo");
    Program program({"-d", card.device(), "--pipe", fifo});
    program.begin();
    QVERIFY(waitFor([&] { return program.err.contains("waiting for a writer"); }));
    PipeWriter writer(fifo, media::readFile(one));
    QCOMPARE(program.finish(), 0);
    QVERIFY(writer.waitForFinished());
    QCOMPARE(program.out, QByteArray("ended stream.fifo\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
    QVERIFY(QFile::exists(fifo));
}

void TestSources::pipeOfRawSamplesPlaysWithCaps()
{
    const VirtualCard card("card");
    const QString fifo = TestProcess::path("raw.fifo");
    Program program(
        {"-d", card.device(), "--pipe", fifo, "--caps",
         "audio/x-unaligned-raw,format=S16LE,rate=48000,channels=2,layout=interleaved"});
    program.begin();
    QVERIFY(waitFor([&] { return program.err.contains("waiting for a writer"); }));
    // Enough silence behind the sound: raw samples may lose their tail.
    PipeWriter writer(fifo, samplesOfOne + QByteArray(4 * 48000 * 4, '\0'));
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended raw.fifo\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestSources::sourceThatCannotBeReadFails_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("outcome");
    QTest::addColumn<QByteArray>("hint");
    QTest::newRow("missing file") << QStringList{"--data", "missing.wav"}
                                  << QByteArray("error missing.wav: No such file or directory\n")
                                  << QByteArray("could not be read into memory");
    QTest::newRow("folder") << QStringList{"--data", "."} << QByteArray("error .: it is a folder\n")
                            << QByteArray("could not be read into memory");
    QTest::newRow("pipe is a file")
        << QStringList{"--pipe", "one.wav"} << QByteArray("error one.wav: it is not a named pipe\n")
        << QByteArray("something else is at 'one.wav': name another path\n");
    QTest::newRow("pipe nowhere") << QStringList{"--pipe", "no/pipe"}
                                  << QByteArray("error pipe: the pipe could not be made\n")
                                  << QByteArray("may files be made in the folder of 'no/pipe'?\n");
}

void TestSources::sourceThatCannotBeReadFails()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, outcome);
    QFETCH(QByteArray, hint);
    Program program(QStringList{"-d", "null"} + arguments);
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, outcome);
    QVERIFY2(program.err.contains(hint), program.err);
}

void TestSources::itemsPlayBeforeDataBeforePipes()
{
    Program program({"--fake", "--pipe", "p", "--data", "d", "-t", "x", "a"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped x-1\nstopped x-2\nstopped x-3\n"));
    Program named({"--fake", "--pipe", "p", "--data", "d", "a"});
    QCOMPARE(named.finish(), 0);
    QCOMPARE(named.out, QByteArray("stopped a\nstopped d\nstopped p\n"));
    QVERIFY(!QFile::exists(TestProcess::path("p")));
}

KOVA_TEST(TestSources)
#include "tst_sources.moc"
