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

    /// Makes the folder if there is none and tells GStreamer to use it. Must be called before
    /// GStreamer is initialised, that is before the first player is made.
    /// @return why that cannot be done; empty when it was
    QString prepare();

    /// Turns what GStreamer has written since prepare() into SVG files, as far as Graphviz is
    /// installed, and tells the user what there is.
    void finish(Console& console) const;

private:
    QMap<QString, QDateTime> dotFiles() const;
    QStringList newDotFiles() const;

    QDir dir;
    QMap<QString, QDateTime> formerFiles;
};

#endif
