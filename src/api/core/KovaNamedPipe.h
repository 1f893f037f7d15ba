#ifndef KOVA_NAMED_PIPE_H
#define KOVA_NAMED_PIPE_H

#include "core/kova_api_export.h"

#include <QtCore/QObject>
#include <QtCore/QString>

class QSocketNotifier;

/// The reading end of a named pipe (FIFO) with a notifier for the Qt event loop.
class KOVA_API_EXPORT KovaNamedPipe : public QObject
{
    Q_OBJECT

public:
    KovaNamedPipe(const QString& name, int id, QObject* parent, bool removeOnClose);
    ~KovaNamedPipe() override;

    bool create();
    bool open(bool waitForWriter);
    void setNonBlock(bool nonBlock);
    int read(const char* data, int size);
    void close();
    QSocketNotifier* readNotifier();
};

#endif
