// Any text as the name of an item.
//
// A flag of the input chooses the encoding of the rest: UTF-8, or UTF-16, which can contain invalid
// text (half of a surrogate pair, for instance).

#include "fuzz/FuzzProcess.h"

#include <simplePlayer/UriSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer_p.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <gst/gst.h>

namespace {

class OpenEngine : public UriSimplePlayerImpl
{
public:
    using UriSimplePlayerImpl::uri;
    using UriSimplePlayerImpl::UriSimplePlayerImpl;
};

QString itemOf(FuzzedDataProvider& input)
{
    const bool isUtf16 = input.ConsumeBool();
    const QByteArray units = consumeRest(input);
    if (!isUtf16) {
        return QString::fromUtf8(units);
    }
    return QString(reinterpret_cast<const QChar*>(units.constData()), units.size() / 2);
}

/// Relative names find a few files.
void enterFolderWithFiles()
{
    static const bool entered = [] {
        for (const char* name : {"a", "b.wav", "ä", "a b", "%20", "#"}) {
            QFile(TestProcess::path(QString::fromUtf8(name))).open(QIODevice::WriteOnly);
        }
        return QDir::setCurrent(TestProcess::path());
    }();
    require(entered, "the folder of this process can be entered");
}

QString expectedUri(const QString& item)
{
    if (item.startsWith(QLatin1String("http://")) || item.startsWith(QLatin1String("https://"))) {
        return item;
    }
    const QFileInfo file(item.startsWith(QLatin1String("file://")) ? item.mid(7) : item);
    return file.exists() ? QStringLiteral("file://") + file.absoluteFilePath() : QString();
}

} // namespace

FUZZ_TARGET
{
    enterFolderWithFiles();
    FuzzedDataProvider input(bytes, size);
    const QString item = itemOf(input);
    UriSimplePlayer front(item, QStringLiteral("token"), QString());
    OpenEngine engine(item, QStringLiteral("token"), item, &front);
    require(engine.uri == expectedUri(item),
            "web addresses are unchanged, files get an absolute URI");

    GstElement* pipeline = gst_pipeline_new(nullptr);
    require(engine.initPipeline(pipeline) != engine.uri.isEmpty(),
            "exactly the items with a URI get a pipeline");
    gst_object_unref(pipeline);
    return 0;
}
