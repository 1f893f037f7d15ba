#ifndef TEST_DOCS_MARKDOWN_PAGE_H
#define TEST_DOCS_MARKDOWN_PAGE_H

#include <QtCore/QString>
#include <QtCore/QStringList>

/// What other pages may refer to in a Markdown file, and what it refers to. Code does not count.
class MarkdownPage
{
public:
    explicit MarkdownPage(const QString& path);

    /// The targets of all links, as they are written.
    QStringList links() const;
    /// The anchors that repository viewers give to the headings.
    QStringList anchors() const;

private:
    QStringList lines; ///< without blocks of code
};

#endif
