#include "Check.h"

#include "Console.h"
#include "Devices.h"
#include "Elements.h"
#include "Examine.h"
#include "Expansion.h"
#include "Formats.h"
#include "GstLog.h"
#include "Registry.h"

#include <QtCore/QAbstractEventDispatcher>

namespace {

/// Prints the line of one thing. @return whether it is all right
bool report(const QString& thing, const QString& problem, Console& console)
{
    if (problem.isEmpty()) {
        console.printResult("ok      " + thing);
        return true;
    }
    console.printResult("FAILED  " + thing + ": " + problem);
    return false;
}

bool checkElements(Console& console)
{
    bool complete = true;
    for (const elements::Element& element : elements::needed()) {
        const QString problem = elements::isInstalled(element)
                                    ? QString()
                                    : QString("missing; apt-get install %1").arg(element.package);
        complete = report(QString("element %1").arg(element.name), problem, console) && complete;
    }
    return complete;
}

void checkVersion(Console& console)
{
    const QString problem = problemWithGStreamer();
    console.printResult(problem.isEmpty()
                            ? "ok      " + gstreamerVersion()
                            : QString("warning %1: %2").arg(gstreamerVersion(), problem));
}

void checkFormats(Console& console)
{
    for (const formats::Format& format : formats::all()) {
        const QStringList packages = formats::missingPackages(format);
        console.printResult(packages.isEmpty() ? QString("ok      format %1").arg(format.name)
                                               : QString("missing format %1: apt-get install %2")
                                                     .arg(format.name, packages.join(' ')));
    }
}

/// @return whether the players can be made
bool checkGStreamer(Console& console)
{
    const GstLog log(false, true, console);
    const Registry registry;
    const QString problem = elements::initialise();
    if (!problem.isEmpty()) {
        return report("GStreamer", problem, console);
    }
    checkVersion(console);
    const Registry::Report state = registry.report(log.registry().outdated);
    console.printResult((state.costs ? "warning " : "ok      ") + state.text);
    const bool complete = checkElements(console);
    checkFormats(console);
    return complete;
}

bool checkDevice(const QString& device, Console& console)
{
    const devices::Report state = devices::examine(device);
    QString thing = "device " + device;
    if (state.problem.isEmpty()) {
        thing += ": " + state.takes;
    }
    return report(thing, state.problem, console);
}

Examination examinationOf(const expansion::Entry& entry, const QString& device)
{
    if (entry.problem.reason.isEmpty()) {
        return examine(entry.name, device);
    }
    Examination examination;
    examination.problem = entry.problem.reason;
    examination.hint = entry.problem.hint;
    return examination;
}

bool checkItem(const expansion::Entry& entry, const QString& device, Console& console)
{
    const Examination found = examinationOf(entry, device);
    QString thing = "item " + entry.name;
    QString problem = found.problem;
    if (problem.isEmpty()) {
        thing += ": " + found.type;
    } else if (!found.hint.isEmpty()) {
        problem += "; " + found.hint;
    }
    const bool playable = report(thing, problem, console);
    if (!found.elements.isEmpty()) {
        console.printResult("        elements: " + found.elements.join(", "));
    }
    if (!found.sound.isEmpty()) {
        console.printResult(QString("        sound: %1; %2").arg(found.sound, found.fit));
    }
    return playable;
}

} // namespace

bool runsOnGLib()
{
    const QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
    return dispatcher && QByteArray(dispatcher->metaObject()->className()).contains("Glib");
}

QString hintOnGLib()
{
    return qEnvironmentVariableIsSet("QT_NO_GLIB") ? "unset QT_NO_GLIB"
                                                   : "use a Qt that was built with GLib";
}

bool runCheck(const QString& device, const QStringList& items, Console& console)
{
    const bool glib =
        report("Qt on GLib's event dispatcher", runsOnGLib() ? QString() : hintOnGLib(), console);
    const bool gstreamer = checkGStreamer(console);
    const bool opens = checkDevice(device, console);
    bool playable = gstreamer;
    if (gstreamer) {
        for (const expansion::Entry& entry : expansion::expanded(items)) {
            playable = checkItem(entry, device, console) && playable;
        }
    }
    return glib && opens && playable;
}
