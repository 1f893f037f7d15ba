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

/// Reading caps or structures from a text that is none: rubbish from outside gets that far.
static bool isAboutText(const gchar* message)
{
    return std::strstr(message, "gst_structure_validate_name") != nullptr;
}

/// On GStreamer's threads criticals are about what its own elements do with rubbish: they are told,
/// and what they may lead to is judged. On ours they show that GStreamer was called wrongly.
static void judgeCritical(const gchar* domain, GLogLevelFlags level, const gchar* message,
                          gpointer /*data*/)
{
    if ((level & G_LOG_LEVEL_MASK) > G_LOG_LEVEL_CRITICAL) {
        return;
    }
    std::fprintf(stderr, "critical: %s: %s\n", domain ? domain : "", message);
    require(QThread::currentThread() != QCoreApplication::instance()->thread() ||
                isAboutText(message) || isComplaintOfGStreamerItself(message),
            "GStreamer is called as it wants to be");
}

int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    // Both live as long as the process: libFuzzer ends it without returning to anybody.
    static const TestProcess process;
    static const QCoreApplication application(*argc, *argv);
    g_log_set_default_handler(judgeCritical, nullptr);
    gst_init(nullptr, nullptr);
    useGreedySink(); // lives as long as the process and is no leak
    trackGstObjects();
    return 0;
}

void require(bool promise, const char* text)
{
    if (!promise) {
        std::fprintf(stderr, "BROKEN: %s\n", text);
        std::abort();
    }
}

InputReader::InputReader(const uint8_t* bytes, std::size_t size)
    : input(reinterpret_cast<const char*>(bytes), static_cast<int>(size))
{
}

uint8_t InputReader::byte()
{
    return atEnd() ? uint8_t(0) : static_cast<uint8_t>(input.at(position++));
}

QByteArray InputReader::text()
{
    const int zero = input.indexOf('\0', position);
    const QByteArray taken = bytes((zero < 0 ? input.size() : zero) - position);
    if (zero >= 0) {
        ++position;
    }
    return taken;
}

QByteArray InputReader::bytes(int count)
{
    const QByteArray taken = input.mid(position, count);
    position += taken.size();
    return taken;
}

QByteArray InputReader::rest()
{
    return bytes(input.size() - position);
}

/// Whether no element lives that an engine makes. Pads are not looked for: GStreamer 1.22 itself
/// leaves a pair behind at times, when a pipeline goes down while its decoder is being built.
static bool elementsAreGone()
{
    const QStringList live = liveGstObjects();
    const QStringList ours{"GstPipeline", "GstAppSrc",       "GstIdentity",      "GstDecodeBin",
                           "GstQueue",    "GstAudioConvert", "GstAudioResample", "GreedySink"};
    return std::none_of(ours.begin(), ours.end(),
                        [&live](const QString& type) { return live.contains(type); });
}

/// How long an outcome is waited for. Bare pipelines too lose the error of a broken item at times.
constexpr int patienceMs = 500;

void playToTheEnd(std::unique_ptr<SimplePlayer> player, const std::function<bool()>& feed)
{
    Outcomes outcomes(player.get());
    bool inCall = true;
    outcomes.inSlot = [&inCall] { require(!inCall, "no outcome is told from inside a call"); };
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
    require(outcomes.all.size() == 1, "nothing is told after a player's life");
    require(waitFor(elementsAreGone), "no element is left of a pipeline");
}
