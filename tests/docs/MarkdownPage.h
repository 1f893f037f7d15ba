#ifndef TEST_DOCS_MARKDOWN_PAGE_H
#define TEST_DOCS_MARKDOWN_PAGE_H

#include <QtCore/QString>
#include <QtCore/QStringList>

/// The links and the anchors of a Markdown file, without those in code blocks.
class MarkdownPage
{
public:
    explicit MarkdownPage(const QString& path);

    /// Returns the targets of all links, unchanged.
    QStringList links() const;
    /// Returns the anchors that repository viewers assign to the headings.
    QStringList anchors() const;

private:
    QStringList lines; ///< without blocks of code
};

#endif
