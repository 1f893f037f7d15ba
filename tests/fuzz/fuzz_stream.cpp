// Any bytes, written into the FIFO in blocks of any size, with any caps.
//
// An input is the text of the caps, the item, and one number for the size of the blocks.

#include "fuzz/FuzzProcess.h"
#include "kit/FifoWriter.h"

#include <simplePlayer/StreamSimplePlayer.h>

FUZZ_TARGET
{
    FuzzedDataProvider input(bytes, size);
    const QString caps = QString::fromUtf8(consumeText(input));
    const int block = 1 + 37 * input.ConsumeIntegral<uint8_t>();
    const QByteArray item = consumeRest(input);
    const QString fifo = TestProcess::path(QStringLiteral("fifo"));

    auto player =
        std::make_unique<StreamSimplePlayer>(fifo, caps, QStringLiteral("token"), QString());
    FifoWriter writer(fifo);
    int written = 0;
    playToTheEnd(std::move(player), [&] {
        const int count = writer.writeSome(item.mid(written, block));
        written += count;
        if (count >= 0 && written < item.size()) {
            return true;
        }
        writer.close();
        return false;
    });
    return 0;
}
