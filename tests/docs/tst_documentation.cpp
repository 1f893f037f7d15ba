#include "LogLines.h"
#include "MarkdownPage.h"

#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QDirIterator>
#include <QtTest/QtTest>

/// Compares the Markdown pages with each other and with the source code.
class TestDocumentation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linksHaveTargets_data();
    void linksHaveTargets();
    void indexNamesEveryPage();
    void everyLogLineIsDocumented();
    void everyDocumentedLineExists();
};

static const QString tree = QStringLiteral(KOVA_SOURCE_DIR);

/// Returns all Markdown files of the tree except those in build folders and hidden folders.
static QStringList pagesOfTree()
{
    QStringList pages;
    for (const QString& name : QDir(tree).entryList({"*.md"}, QDir::Files)) {
        pages << tree + '/' + name;
    }
    for (const QString& folder : QDir(tree).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (folder == "build") {
            continue;
        }
        QDirIterator files(tree + '/' + folder, {"*.md"}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            pages << files.next();
        }
    }
    return pages;
}

void TestDocumentation::linksHaveTargets_data()
{
    QTest::addColumn<QString>("page");
    for (const QString& page : pagesOfTree()) {
        QTest::newRow(qPrintable(QDir(tree).relativeFilePath(page))) << page;
    }
}

void TestDocumentation::linksHaveTargets()
{
    QFETCH(QString, page);
    QStringList broken;
    for (const QString& link : MarkdownPage(page).links()) {
        if (link.contains("://")) {
            continue;
        }
        const QString path = link.section('#', 0, 0);
        const QString anchor = link.section('#', 1);
        const QString target = path.isEmpty() ? page : QFileInfo(page).path() + '/' + path;
        if (!QFileInfo::exists(target) ||
            (!anchor.isEmpty() && !MarkdownPage(target).anchors().contains(anchor))) {
            broken << link;
        }
    }
    QCOMPARE(broken.join(" "), QString());
}

void TestDocumentation::indexNamesEveryPage()
{
    const QStringList links = MarkdownPage(tree + "/docs/README.md").links();
    for (const QString& page : QDir(tree + "/docs").entryList({"*.md"}, QDir::Files)) {
        QVERIFY2(page == "README.md" || links.contains(page), qPrintable(page));
    }
}

void TestDocumentation::everyLogLineIsDocumented()
{
    const QVector<LogLine> documented = linesOfPage(tree + "/docs/log-reference.md");
    const QVector<LogLine> written = linesOfSource(tree + "/src");
    // A parser that finds nothing must not pass.
    QVERIFY2(written.size() > 80, qPrintable(QString::number(written.size())));
    for (const LogLine& line : written) {
        const bool known = std::any_of(documented.begin(), documented.end(),
                                       [&](const LogLine& row) { return line.covers(row); });
        QVERIFY2(known, qPrintable("not on the page: " + line.level + ' ' + line.text));
    }
}

void TestDocumentation::everyDocumentedLineExists()
{
    const QVector<LogLine> written = linesOfSource(tree + "/src");
    for (const LogLine& row : linesOfPage(tree + "/docs/log-reference.md")) {
        const bool exists = std::any_of(written.begin(), written.end(),
                                        [&](const LogLine& line) { return line.covers(row); });
        QVERIFY2(exists, qPrintable("not in the source: " + row.level + ' ' + row.text));
    }
}

KOVA_TEST(TestDocumentation)
#include "tst_documentation.moc"
