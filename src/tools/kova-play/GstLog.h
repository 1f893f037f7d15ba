#ifndef KOVA_PLAY_GST_LOG_H
#define KOVA_PLAY_GST_LOG_H

#include <QtCore/QString>

#include <gst/gst.h>

#include <chrono>
#include <mutex>
#include <vector>

class Console;

/// Observes what GStreamer itself logs while this object exists. There is at most one, made before
/// GStreamer is initialised. All functions may be called from any thread.
class GstLog
{
public:
    using Clock = std::chrono::steady_clock;

    /// A plug-in that was loaded.
    struct PluginLoad
    {
        QString name;
        Clock::time_point begin;
        Clock::time_point end;
    };

    /// What the initialisation did with the registry, the list of plug-ins.
    struct Registry
    {
        Clock::time_point begin; ///< when it was first mentioned
        Clock::time_point end;   ///< when it was last mentioned
        bool outdated = false;   ///< it was not there or did not describe the plug-ins
    };

    /// @param showsWarnings     whether warnings and errors go to the console. They do not when the
    ///                          user has GStreamer log by itself (GST_DEBUG)
    /// @param observesPlugins   whether registry() and pluginLoads() are wanted
    GstLog(bool showsWarnings, bool observesPlugins, Console& output);
    ~GstLog();
    GstLog(const GstLog&) = delete;
    GstLog& operator=(const GstLog&) = delete;

    Registry registry() const;
    /// The plug-ins that were loaded, in the order of their ends.
    std::vector<PluginLoad> pluginLoads() const;

private:
    static void receive(GstDebugCategory* category, GstDebugLevel level, const gchar* file,
                        const gchar* function, gint line, GObject* object, GstDebugMessage* message,
                        gpointer log);
    void noteRegistry(const QString& text);
    void notePlugin(GstDebugLevel level, const QString& text);

    Console& console;
    const bool printsWarnings;
    mutable std::mutex mutex;
    Registry observedRegistry;
    std::vector<PluginLoad> begunLoads;
    std::vector<PluginLoad> endedLoads;
};

#endif
