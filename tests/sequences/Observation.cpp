#include "sequences/Observation.h"

#include <QtCore/QRegularExpression>

Observation Observation::atAnyPace() const
{
    static const QRegularExpression ofStreaming(
        "GStreamer state change: |::newPadCallback|::feedDataCallback|::seekDataCallback|"
        "::on_receiveNewData|Cropping to size|Pushed buffer|Unable to push buffer|EOS sent");
    Observation calm = *this;
    calm.log.clear();
    for (const QString& line : log) {
        if (!line.contains(ofStreaming)) {
            calm.log.append(line);
        }
    }
    return calm;
}

QStringList Observation::text() const
{
    static const char* const readers[] = {"none", "reading", "held", "ended"};
    const auto yesNo = [](bool flag) { return flag ? "yes" : "no"; };
    QStringList lines{
        QStringLiteral("result       %1")
            .arg(result < 0 ? "-"
                 : result   ? "true"
                            : "false"),
        QStringLiteral("player       %1").arg(yesNo(alive)),
        QStringLiteral("pipeline     %1").arg(yesNo(pipeline)),
        QStringLiteral("bus watch    %1").arg(yesNo(watched)),
        QStringLiteral("initialized  %1").arg(yesNo(initialized)),
        QStringLiteral("end reported %1").arg(yesNo(endReported)),
        QStringLiteral("requested    %1")
            .arg(requested == GST_STATE_VOID_PENDING ? "-" : gst_element_state_get_name(requested)),
        QStringLiteral("reader       %1").arg(readers[int(reader)])};
    for (const QString& signal : signalsEmitted) {
        lines.append("signal       " + signal);
    }
    for (const QString& line : log) {
        lines.append("log          " + line);
    }
    return lines;
}
