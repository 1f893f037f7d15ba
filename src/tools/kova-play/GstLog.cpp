#include "GstLog.h"

#include "Console.h"

#include <QtCore/QFileInfo>
#include <QtCore/QTime>

#include <algorithm>

namespace {

const QLatin1String registryCategory("GST_REGISTRY");
const QLatin1String pluginCategory("GST_PLUGIN_LOADING");

/// What is between the first and the last double quote.
QString quoted(const QString& text)
{
    return text.section('"', 1, -2);
}

QString logLine(GstDebugLevel level, const QString& category, GObject* object, const QString& text)
{
    QString source;
    if (GST_IS_OBJECT(object) && GST_OBJECT_NAME(object)) {
        source = QString(" <%1>").arg(QString::fromUtf8(GST_OBJECT_NAME(object)));
    }
    return QString("%1 %2 gstreamer.%3%4: %5")
        .arg(QTime::currentTime().toString("HH:mm:ss.zzz"),
             level == GST_LEVEL_ERROR ? "ERROR" : "WARN ", category, source, text);
}

} // namespace

GstLog::GstLog(bool showsWarnings, bool observesPlugins, Console& output)
    : console(output), printsWarnings(showsWarnings && !qEnvironmentVariableIsSet("GST_DEBUG"))
{
    if (!printsWarnings && !observesPlugins) {
        return; // the log stays switched off
    }
    // The names are in parentheses because GStreamer's macros of the same names compare a function
    // with a `void*`, which clang refuses.
    if (!qEnvironmentVariableIsSet("GST_DEBUG")) {
        (gst_debug_remove_log_function)(nullptr); // the default one
    }
    (gst_debug_add_log_function)(receive, this, nullptr);
    gst_debug_set_active(TRUE);
    if (printsWarnings) {
        gst_debug_set_default_threshold(GST_LEVEL_WARNING);
    }
    if (observesPlugins) {
        gst_debug_set_threshold_for_name(registryCategory.data(), GST_LEVEL_INFO);
        gst_debug_set_threshold_for_name(pluginCategory.data(), GST_LEVEL_DEBUG);
    }
}

GstLog::~GstLog()
{
    (gst_debug_remove_log_function)(receive);
}

GstLog::Registry GstLog::registry() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return observedRegistry;
}

std::vector<GstLog::PluginLoad> GstLog::pluginLoads() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return endedLoads;
}

void GstLog::receive(GstDebugCategory* category, GstDebugLevel level, const gchar* /*file*/,
                     const gchar* /*function*/, gint /*line*/, GObject* object,
                     GstDebugMessage* message, gpointer log)
{
    auto* self = static_cast<GstLog*>(log);
    const QString name = QString::fromUtf8(gst_debug_category_get_name(category));
    const QString text = QString::fromUtf8(gst_debug_message_get(message));
    if (name == registryCategory) {
        self->noteRegistry(text);
    } else if (name == pluginCategory) {
        self->notePlugin(level, text);
    }
    if (self->printsWarnings && level <= GST_LEVEL_WARNING) {
        self->console.printLogLine(logLine(level, name, object, text));
    }
}

void GstLog::noteRegistry(const QString& text)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const Clock::time_point now = Clock::now();
    if (observedRegistry.begin == Clock::time_point()) {
        observedRegistry.begin = now;
    }
    observedRegistry.end = now;
    if (text.contains(QLatin1String("cache changed"))) {
        observedRegistry.outdated = true;
    }
}

void GstLog::notePlugin(GstDebugLevel level, const QString& text)
{
    // The same function logs that it begins, at a lower level, and that it has loaded a file.
    const bool begins = text.startsWith(QLatin1String("attempt to load plugin "));
    const bool ends = level == GST_LEVEL_INFO && text.endsWith(QLatin1String("\" loaded"));
    if (!begins && !ends) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    const QString name = QFileInfo(quoted(text)).completeBaseName().remove("libgst");
    if (begins) {
        begunLoads.push_back({name, Clock::now(), {}});
        return;
    }
    const auto begun = std::find_if(begunLoads.begin(), begunLoads.end(),
                                    [&](const PluginLoad& load) { return load.name == name; });
    if (begun != begunLoads.end()) {
        endedLoads.push_back({name, begun->begin, Clock::now()});
        begunLoads.erase(begun);
    }
}
