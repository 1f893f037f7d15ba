#include "Check.h"

#include "Console.h"
#include "Devices.h"
#include "Elements.h"

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
        // GCOVR_EXCL_BR_START: the compiler's, for temporary texts
        complete = report(QString("element %1").arg(element.name), problem, console) && complete;
        // GCOVR_EXCL_BR_STOP
    }
    return complete;
}

} // namespace

bool runsOnGLib()
{
    const QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
    // GCOVR_EXCL_BR_START: an application has one
    return dispatcher && QByteArray(dispatcher->metaObject()->className()).contains("Glib");
    // GCOVR_EXCL_BR_STOP
}

QString hintOnGLib()
{
    // GCOVR_EXCL_BR_START: the second is for another Qt than the one that runs here
    return qEnvironmentVariableIsSet("QT_NO_GLIB") ? "unset QT_NO_GLIB"
                                                   : "use a Qt that was built with GLib";
    // GCOVR_EXCL_BR_STOP
}

bool runCheck(const QString& device, Console& console)
{
    const bool glib =
        report("Qt on GLib's event dispatcher", runsOnGLib() ? QString() : hintOnGLib(), console);
    const QString gstreamerProblem = elements::initialise();
    // GCOVR_EXCL_BR_START: GStreamer itself is there where tests run
    const bool gstreamer = report("GStreamer", gstreamerProblem, console) && checkElements(console);
    // GCOVR_EXCL_BR_STOP
    const bool opens =
        report(QString("device %1").arg(device), devices::problemWith(device), console);
    return glib && gstreamer && opens;
}
