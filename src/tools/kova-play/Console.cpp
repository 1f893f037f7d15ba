#include "Console.h"

#include "Text.h"

#include <cstdio>

namespace {

const char* const clearToEndOfLine = "\033[K";

/// @return whether everything was written
bool put(FILE* stream, const QByteArray& bytes)
{
    const auto size = static_cast<std::size_t>(bytes.size());
    return std::fwrite(bytes.constData(), 1, size, stream) == size;
}

} // namespace

void Console::printResult(const QString& line)
{
    write(stdout, text::encoded(text::oneLine(line)) + '\n');
}

void Console::printText(const QString& lines)
{
    write(stdout, text::encoded(lines));
}

void Console::printMessage(const QString& line)
{
    write(stderr, "kova-play: " + text::encoded(text::oneLine(line)) + '\n');
}

void Console::printLogLine(const QString& line)
{
    write(stderr, text::encoded(text::oneLine(line)) + '\n');
}

void Console::setLiveLine(const QString& line)
{
    const QByteArray bytes = text::encoded(text::oneLine(line));
    const std::lock_guard<std::mutex> lock(mutex);
    if (bytes == liveLine) {
        return;
    }
    liveLine = bytes;
    // New text over old, in one piece: clearing the line first would make it flicker.
    put(stderr, '\r' + liveLine + clearToEndOfLine);
}

void Console::forgetLiveLine()
{
    const std::lock_guard<std::mutex> lock(mutex);
    liveLine.clear();
}

bool Console::resultsWritten() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return !failed;
}

void Console::write(FILE* stream, const QByteArray& bytes)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!liveLine.isEmpty()) {
        put(stderr, QByteArray("\r") + clearToEndOfLine);
    }
    const bool written = put(stream, bytes) && std::fflush(stream) == 0;
    failed = failed || (stream == stdout && !written);
    if (!liveLine.isEmpty()) {
        put(stderr, liveLine);
    }
}
