#ifndef KOVA_PLAY_REGISTRY_H
#define KOVA_PLAY_REGISTRY_H

#include <QtCore/QDateTime>
#include <QtCore/QString>

/// GStreamer's registry: the file that saves each process from scanning all plug-ins.
class Registry
{
public:
    /// Looks at the file. To be made before GStreamer is initialised, which may write it.
    Registry();

    /// What has become of it.
    struct Report
    {
        QString text;       ///< what it is like
        bool costs = false; ///< each process scans all plug-ins, as the file is of no use
    };

    /// @param outdated  whether the initialisation found that the file does not fit the plug-ins
    Report report(bool outdated) const;

private:
    QString path;            ///< of the file; of its folder when there is none
    QDateTime formerVersion; ///< invalid when there was no file
};

/// What is known against a version of GStreamer; empty when nothing is.
QString problemWithGStreamer(unsigned major, unsigned minor, unsigned micro);

/// The same of the version that runs.
QString problemWithGStreamer();

/// Its number.
QString gstreamerVersion();

#endif
