#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/Waiting.h"

#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

/// The built libraries as an integrator finds them: names, link line, exports, behaviour when
/// loaded.
class TestLibrary : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sonamesCarryNoVersion_data();
    void sonamesCarryNoVersion();
    void uncalledLibrariesAreOnTheLinkLine();
    void onlyPublicClassesAreExported();
    void loadingPrintsNothingAndStartsNoThread();
    void loadingCreatesTheLoggerOfEverySource();

private:
    /// What a tool prints about a file.
    static QString output(const QString& tool, const QStringList& arguments);
};

QString TestLibrary::output(const QString& tool, const QStringList& arguments)
{
    QProcess process;
    process.start(tool, arguments);
    if (!process.waitForFinished(patience) || process.exitCode() != 0) {
        qFatal("%s failed: %s", qPrintable(tool), process.readAllStandardError().constData());
    }
    return QString::fromUtf8(process.readAllStandardOutput());
}

void TestLibrary::sonamesCarryNoVersion_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("soname");
    QTest::newRow("player") << KOVA_SIMPLEPLAYER_FILE << "libkova_simpleplayer.so";
    QTest::newRow("core API") << KOVA_API_FILE << "libkova_api.so";
}

void TestLibrary::sonamesCarryNoVersion()
{
    QFETCH(QString, file);
    QFETCH(QString, soname);
    QCOMPARE(QFileInfo(file).fileName(), soname);
    QVERIFY(output(QStringLiteral("readelf"), {"-d", file})
                .contains(QStringLiteral("Library soname: [%1]").arg(soname)));
}

void TestLibrary::uncalledLibrariesAreOnTheLinkLine()
{
    const QString dynamic = output(QStringLiteral("readelf"), {"-d", KOVA_SIMPLEPLAYER_FILE});
    QVERIFY(dynamic.contains(QStringLiteral("[libkova_api.so]")));
    QVERIFY(!dynamic.contains(QStringLiteral("SYMBOLIC")));
    const auto linked = [&dynamic](const QString& name) {
        return dynamic.contains(QStringLiteral("[%1]").arg(name));
    };
    for (const char* name : {"libgstbase-1.0.so.0", "libgstaudio-1.0.so.0", "libgstvideo-1.0.so.0",
                             "libgstpbutils-1.0.so.0", "libQt5Network.so.5", "libQt5DBus.so.5"}) {
        QVERIFY2(linked(QLatin1String(name)) == bool(KOVA_LINK_UNCALLED), name);
    }
    // These need not be installed where the library is built.
    const QStringList found = QStringLiteral(KOVA_UNCALLED_FOUND).split(QLatin1Char(' '));
    for (const char* name :
         {"libkova_thrift_api.so", "libjson-sax.so.1.0", "libnanomsg.so.5", "libcap.so.2"}) {
        const bool expected = KOVA_LINK_UNCALLED && found.contains(QLatin1String(name));
        QVERIFY2(linked(QLatin1String(name)) == expected, name);
    }
}

void TestLibrary::onlyPublicClassesAreExported()
{
    const QRegularExpression publicSymbol(
        QStringLiteral("^((vtable|typeinfo|typeinfo name) for "
                       ")?(SimplePlayer|FakePlayer|UriSimplePlayer|"
                       "DataSimplePlayer|StreamSimplePlayer)(::.*)?$"));
    const QString symbols =
        output(QStringLiteral("nm"), {"-DC", "--defined-only", KOVA_SIMPLEPLAYER_FILE});
    int exported = 0;
    for (const QString& line : symbols.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString symbol = line.section(QLatin1Char(' '), 2);
        QVERIFY2(publicSymbol.match(symbol).hasMatch(), qPrintable(symbol));
        ++exported;
    }
    QVERIFY(exported > 0);
    for (const char* needed :
         {"SimplePlayer::staticMetaObject", "SimplePlayer::playbackEnded(QString const&)",
          "FakePlayer::FakePlayer(QString const&, QObject*)", "typeinfo for UriSimplePlayer",
          "UriSimplePlayer::UriSimplePlayer(QString const&, QString const&, QString const&, "
          "QObject*)"}) {
        QVERIFY2(symbols.contains(QLatin1String(needed)), needed);
    }
}

void TestLibrary::loadingPrintsNothingAndStartsNoThread()
{
    // log4cplus starts the threads of its pool when it is loaded; the library adds none to them.
    const auto threadsAfterLoading = [](const QString& library) {
        QProcess loader;
        loader.start(TestProcess::startable(QStringLiteral(LOAD_ONLY_FILE)), {library});
        loader.waitForFinished(patience);
        const QByteArray printed = loader.readAllStandardOutput() + loader.readAllStandardError();
        return printed.isEmpty() && loader.exitStatus() == QProcess::NormalExit
                   ? QString::number(loader.exitCode())
                   : QString::fromUtf8(printed);
    };
    const QString log4cplus =
        QRegularExpression(QStringLiteral("\\[(liblog4cplus[^\\]]*)\\]"))
            .match(output(QStringLiteral("readelf"), {"-d", KOVA_SIMPLEPLAYER_FILE}))
            .captured(1);
    QCOMPARE(threadsAfterLoading(KOVA_SIMPLEPLAYER_FILE), threadsAfterLoading(log4cplus));
}

void TestLibrary::loadingCreatesTheLoggerOfEverySource()
{
    const QString program = TestProcess::startable(QStringLiteral(LOAD_ONLY_FILE));
    const auto exists = [&program](const char* logger) {
        return QProcess::execute(program, {QStringLiteral(KOVA_SIMPLEPLAYER_FILE), logger}) == 0;
    };
    QVERIFY(exists("SimplePlayer"));
    QVERIFY(!exists("NoSuchLogger"));
    // All have the same name. One that is created at its first use has a guard variable.
    const QString symbols = output(QStringLiteral("nm"), {"-C", KOVA_SIMPLEPLAYER_FILE});
    const QRegularExpression logger(QStringLiteral("^[0-9a-f]+ [bd] logger$"),
                                    QRegularExpression::MultilineOption);
    int loggers = 0;
    for (auto match = logger.globalMatch(symbols); match.hasNext(); match.next()) {
        ++loggers;
    }
    QCOMPARE(loggers, KOVA_LOGGING_SOURCES);
}

KOVA_TEST(TestLibrary)
#include "tst_library.moc"
