#include "fuzz/FuzzProcess.h"

#include "fuzz/GreedySink.h"
#include "kit/GstLeaks.h"
#include "kit/PlayerProbe.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QThread>

#include <gst/gst.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

/// Whether GStreamer was given a text that describes no caps or structure: inputs may do that.
static bool isAboutText(const gchar* message)
{
    return std::strstr(message, "gst_structure_validate_name") != nullptr;
}

/// On GStreamer's threads criticals come from its own elements, given bad input: they are printed
/// only. On ours they show that GStreamer was called wrongly.
static void checkCritical(const gchar* domain, GLogLevelFlags level, const gchar* message,
                          gpointer /*data*/)
{
    if ((level & G_LOG_LEVEL_MASK) > G_LOG_LEVEL_CRITICAL) {
        return;
    }
    std::fprintf(stderr, "critical: %s: %s\n", domain ? domain : "", message);
    require(QThread::currentThread() != QCoreApplication::instance()->thread() ||
                isAboutText(message) || isComplaintOfGStreamerItself(message),
            "GStreamer is called correctly");
}

int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    // libFuzzer ends the process without returning.
    static const TestProcess process;
    static const QCoreApplication application(*argc, *argv);
    g_log_set_default_handler(checkCritical, nullptr);
    gst_init(nullptr, nullptr);
    useGreedySink(); // before objects are tracked: it is never released
    trackGstObjects();
    return 0;
}

void require(bool condition, const char* text)
{
    if (!condition) {
        std::fprintf(stderr, "VIOLATED: %s\n", text);
        std::abort();
    }
}

QByteArray consumeText(FuzzedDataProvider& input)
{
    return QByteArray::fromStdString(input.ConsumeRandomLengthString());
}

QByteArray consumeRest(FuzzedDataProvider& input)
{
    return QByteArray::fromStdString(input.ConsumeRemainingBytesAsString());
}

/// Whether no element exists that an engine makes. Pads are not counted: GStreamer 1.22 itself
/// sometimes loses a pair when a pipeline is released while its decoder is being built.
static bool elementsAreGone()
{
    const QStringList live = liveGstObjects();
    const QStringList ours{"GstPipeline", "GstAppSrc",       "GstIdentity",      "GstDecodeBin",
                           "GstQueue",    "GstAudioConvert", "GstAudioResample", "GreedySink"};
    return std::none_of(ours.begin(), ours.end(),
                        [&live](const QString& type) { return live.contains(type); });
}

/// How long to wait for an outcome. Bare pipelines too sometimes lose the error of a broken item.
constexpr int patienceMs = 500;

void playToTheEnd(std::unique_ptr<SimplePlayer> player, const std::function<bool()>& feed)
{
    Outcomes outcomes(player.get());
    bool inCall = true;
    outcomes.inSlot = [&inCall] { require(!inCall, "no outcome is reported from inside a call"); };
    const bool started = player->startPlayback();
    inCall = false;

    bool feeding = static_cast<bool>(feed);
    QDeadlineTimer deadline(patienceMs);
    while (outcomes.all.isEmpty() && (feeding || started) && !deadline.hasExpired()) {
        QCoreApplication::processEvents();
        if (feeding) {
            feeding = feed();
        }
    }
    inCall = true;
    player->stopPlayback();
    inCall = false;
    deliverQueuedEvents();
    require(outcomes.all.size() == 1, "there is exactly one outcome once a player was stopped");
    inCall = true;
    player.reset();
    inCall = false;
    deliverQueuedEvents();
    require(outcomes.all.size() == 1, "nothing is reported after the destruction of a player");
    require(waitFor(elementsAreGone), "no element is left of a pipeline");
}
