#ifndef KOVA_PLAY_GRAPHS_H
#define KOVA_PLAY_GRAPHS_H

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

class Console;

/// Pictures of the pipelines of a run, in one folder.
class Graphs
{
public:
    /// @param folder  where the pictures go
    explicit Graphs(const QString& folder);

    /// Creates the folder if needed and configures GStreamer to use it. Call it before GStreamer is
    /// initialized, that is, before the first player is created.
    /// @return the reason of a failure; empty on success
    QString prepare();

    /// Converts the files that GStreamer has written since prepare() into SVG files, if Graphviz is
    /// installed, and prints a summary.
    void finish(Console& console) const;

private:
    QMap<QString, QDateTime> dotFiles() const;
    QStringList newDotFiles() const;

    QDir dir;
    QMap<QString, QDateTime> formerFiles;
};

#endif
