// Any bytes, written into the pipe in blocks of any size, under any caps.
//
// An input is the text of the caps, a zero byte, one byte that makes the size of the blocks, and
// the item.

#include "fuzz/FifoEnd.h"
#include "fuzz/FuzzProcess.h"

#include <simplePlayer/StreamSimplePlayer.h>

FUZZ_TARGET
{
    InputReader input(bytes, size);
    const QString caps = QString::fromUtf8(input.text());
    const int block = 1 + 37 * input.byte();
    const QByteArray item = input.rest();
    const QString fifo = TestProcess::path(QStringLiteral("fifo"));

    auto player =
        std::make_unique<StreamSimplePlayer>(fifo, caps, QStringLiteral("token"), QString());
    FifoEnd writer(fifo);
    int written = 0;
    playToTheEnd(std::move(player), [&] {
        if (written < item.size()) {
            written += writer.write(item.mid(written, block));
            return true;
        }
        writer.close();
        return false;
    });
    return 0;
}
