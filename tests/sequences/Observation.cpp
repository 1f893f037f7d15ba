#include "sequences/Observation.h"

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
        QStringLiteral("reader       %1").arg(readers[int(reader)]),
        QStringLiteral("pushed       %1").arg(pushed),
        QStringLiteral("seeks        %1").arg(seeks)};
    for (const QString& signal : signalsEmitted) {
        lines.append("signal       " + signal);
    }
    return lines;
}
