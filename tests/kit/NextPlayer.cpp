#include "kit/NextPlayer.h"

#include "kit/VirtualCard.h"

QString problemOfNextPlayer(const Source& source)
{
    const media::Pcm sound = media::noise(9600, 2);
    const VirtualCard card("next");
    SourcePlayer next(source, Item(sound), card.device());
    if (!next.start()) {
        return QStringLiteral("the next player does not start");
    }
    const QStringList outcomes = next.probe.finish();
    if (outcomes != QStringList("ended token")) {
        return "the next player reports " + outcomes.join(", ");
    }
    return media::difference(card.samples(), sound.samples);
}
