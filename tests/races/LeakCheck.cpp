#include "LeakCheck.h"

#include "support/GstLeaks.h"

static const QString decodePad = QStringLiteral("GstDecodePad");

LeakCheck::LeakCheck()
{
    overlookOnePair();
}

void LeakCheck::overlookOnePair()
{
    overlookLeakedGstObject(decodePad);
    overlookLeakedGstObject(QStringLiteral("GstProxyPad"));
    ++overlooked;
}

QString LeakCheck::leftBehind(int lives)
{
    lived += lives;
    const QString leaked = leakedGstObjects();
    if (!leaked.isEmpty()) {
        return leaked;
    }
    const auto lost = liveGstObjects().count(decodePad);
    if (lost >= overlooked) {
        qInfo("GStreamer has lost a pad in one of %d lives", lived);
        overlookOnePair();
    }
    const int tolerated = 2 + lived / 1000;
    return lost > tolerated ? QStringLiteral("%1 pads in %2 lives").arg(lost).arg(lived)
                            : QString();
}
