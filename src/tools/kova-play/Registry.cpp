#include "Registry.h"

#include "Owners.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <unistd.h>

namespace {

QString defaultPath()
{
    const QDir folder(QFile::decodeName(g_get_user_cache_dir()) + "/gstreamer-1.0");
    // The name contains the processor that GStreamer was built for.
    const QStringList files = folder.entryList({"registry.*.bin"}, QDir::Files);
    return files.isEmpty() ? folder.path() + "/registry" : folder.filePath(files.constFirst());
}

QString registryPath()
{
    for (const char* variable : {"GST_REGISTRY_1_0", "GST_REGISTRY"}) {
        if (qEnvironmentVariableIsSet(variable)) {
            return QFile::decodeName(qgetenv(variable));
        }
    }
    return defaultPath();
}

int pluginCount()
{
    GList* plugins = gst_registry_get_plugin_list(gst_registry_get());
    const auto count = static_cast<int>(g_list_length(plugins));
    gst_plugin_list_free(plugins);
    return count;
}

/// GStreamer replaces the file by a new one, so that its folder matters.
bool isWritable(const QString& path)
{
    return access(QFile::encodeName(QFileInfo(path).path()).constData(), W_OK) == 0;
}

} // namespace

Registry::Registry() : path(registryPath())
{
    const QFileInfo file(path);
    if (file.exists()) {
        formerVersion = file.lastModified();
    }
}

Registry::Report Registry::report(bool outdated) const
{
    const QFileInfo file(registryPath());
    const QString name =
        QString("registry %1: %2 plug-ins, ").arg(file.filePath()).arg(pluginCount());
    const bool rewritten = file.exists() && file.lastModified() != formerVersion;
    if (rewritten) {
        return {name +
                (formerVersion.isValid() ? "was out of date, written anew" : "newly written")};
    }
    const QString remedy =
        ": each start scans all plug-ins; set GST_REGISTRY to a file that can be "
        "written, or make one with kova-registry";
    if (!file.exists()) {
        return {name + "not found and not writable" + remedy, true};
    }
    if (!file.isFile() || !file.isReadable()) {
        return {name + "not readable" + remedy, true};
    }
    if (outdated) {
        return {name + "out of date and not writable" + remedy, true};
    }
    return {name + (isWritable(file.filePath()) ? "fresh, writable" : "fresh, not writable")};
}

QString problemWithGStreamer(unsigned major, unsigned minor, unsigned micro)
{
    if (major == 1 && minor == 22 && micro == 1) {
        return "its alsasink plays nothing after a stop and reports the end: use another version";
    }
    return QString();
}

QString problemWithGStreamer()
{
    guint major = 0;
    guint minor = 0;
    guint micro = 0;
    guint nano = 0;
    gst_version(&major, &minor, &micro, &nano);
    return problemWithGStreamer(major, minor, micro);
}

QString gstreamerVersion()
{
    const gst::Text text(gst_version_string());
    return QString::fromUtf8(text.get());
}
