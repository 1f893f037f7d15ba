#include "kit/VirtualCard.h"

#include "kit/TestProcess.h"
#include "kit/Waiting.h"

#include <QtCore/QCache>
#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QSaveFile>

#include <wav/Wav.h>

#include <mutex>

// ---- The configuration ------------------------------------------------------------------------

namespace {

/// The cards that ALSA knows now, by name, each with its part of the configuration.
struct ExistingCards
{
    std::mutex mutex;
    QMap<QString, QByteArray> configurations; ///< guarded by mutex
    int version = 0;                          ///< guarded by mutex
};

ExistingCards& existingCards()
{
    static ExistingCards cards;
    return cards;
}

QString wavPath(const QString& card, int file)
{
    const QString number = file == 0 ? QString() : QStringLiteral("-%1").arg(file + 1);
    return TestProcess::path(QStringLiteral("card-%1%2.wav").arg(card, number));
}

QString eventsPath(const QString& card)
{
    return TestProcess::path(QStringLiteral("card-%1.events").arg(card));
}

} // namespace

/// The arguments of virtualcard-config for a card.
static QStringList argumentsFor(const QString& name, const VirtualCard::Settings& settings)
{
    QStringList arguments{"--name",   name,
                          "--plugin", VIRTUALCARD_PLUGIN,
                          "--record", wavPath(name, 0),
                          "--events", eventsPath(name),
                          "--speed",  QString::number(settings.speed, 'f', 6),
                          "--starve", settings.underruns ? "xrun" : "wait"};
    if (!settings.canPause) {
        arguments << "--no-pause";
    }
    if (!settings.refuse.isEmpty()) {
        arguments << "--refuse" << settings.refuse;
    }
    if (settings.vanishAfter >= 0) {
        arguments << "--vanish-after" << QString::number(settings.vanishAfter);
    }
    if (settings.stallAfter >= 0) {
        arguments << "--stall-after" << QString::number(settings.stallAfter);
    }
    return arguments;
}

/// What virtualcard-config prints. ALSA merges the configurations of several cards in one file.
static QByteArray printedConfiguration(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("sh"), QStringList(VIRTUALCARD_CONFIG) + arguments);
    if (!process.waitForFinished(patience) || process.exitCode() != 0) {
        qFatal("virtualcard-config: %s", process.readAllStandardError().constData());
    }
    return process.readAllStandardOutput();
}

/// The same without running the program again for arguments that it had before. The mutex of the
/// existing cards is held.
static QByteArray configuration(const QStringList& arguments)
{
    static QCache<QStringList, QByteArray> known(16);
    QByteArray* text = known.object(arguments);
    if (!text) {
        text = new QByteArray(printedConfiguration(arguments));
        known.insert(arguments, text);
    }
    return *text;
}

/// Writes the configuration of all existing cards. The mutex of `cards` is held.
static void writeConfiguration(ExistingCards& cards)
{
    const QString path = TestProcess::path(QStringLiteral("asound.conf"));
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        static const QByteArray withoutCards = configuration({});
        file.write(withoutCards);
        for (const QByteArray& card : qAsConst(cards.configurations)) {
            file.write(card);
        }
        // ALSA reads a changed file again when it next opens a device. It knows a change by the
        // second of the file's last modification: no two versions may have the same one.
        file.flush();
        file.setFileTime(QDateTime::fromSecsSinceEpoch(++cards.version),
                         QFileDevice::FileModificationTime);
    }
    if (!file.commit()) {
        qFatal("VirtualCard: %s: %s", qPrintable(path), qPrintable(file.errorString()));
    }
    if (cards.version == 1) {
        qputenv("ALSA_CONFIG_PATH", path.toLocal8Bit());
    }
}

VirtualCard::Settings VirtualCard::Settings::atSpeed(double speed)
{
    Settings settings;
    settings.speed = speed;
    return settings;
}

VirtualCard::Settings VirtualCard::Settings::refusing(const QString& what)
{
    Settings settings;
    settings.refuse = what;
    return settings;
}

VirtualCard::Settings VirtualCard::Settings::vanishingAfter(qint64 frames)
{
    Settings settings;
    settings.vanishAfter = frames;
    return settings;
}

VirtualCard::Settings VirtualCard::Settings::stallingAfter(qint64 frames)
{
    Settings settings;
    settings.stallAfter = frames;
    return settings;
}

VirtualCard::Settings VirtualCard::Settings::stalled()
{
    return stallingAfter(4800);
}

VirtualCard::VirtualCard(const QString& cardName, const Settings& settings) : name(cardName)
{
    static const QRegularExpression allowed(QStringLiteral("^[A-Za-z0-9_-]+$"));
    ExistingCards& cards = existingCards();
    const std::lock_guard<std::mutex> guard(cards.mutex);
    if (!allowed.match(name).hasMatch() || cards.configurations.contains(name)) {
        qFatal("VirtualCard: \"%s\" is no name for a new card", qPrintable(name));
    }
    // What an earlier card of this name has left.
    for (const QString& file : recordPaths()) {
        QFile::remove(file);
    }
    QFile::remove(eventsPath(name));
    cards.configurations.insert(name, configuration(argumentsFor(name, settings)));
    writeConfiguration(cards);
}

VirtualCard::VirtualCard(const QString& cardName) : VirtualCard(cardName, Settings())
{
}

VirtualCard::~VirtualCard()
{
    ExistingCards& cards = existingCards();
    const std::lock_guard<std::mutex> guard(cards.mutex);
    cards.configurations.remove(name);
    writeConfiguration(cards);
}

QString VirtualCard::device() const
{
    return name;
}

// ---- The recording ----------------------------------------------------------------------------

namespace {

/// What a card has recorded in one file.
struct Recording
{
    WavLayout layout;
    QByteArray samples;

    qint64 frames() const
    {
        return layout.rate == 0 ? 0 : samples.size() / int(layout.frameSize());
    }
};

} // namespace

/// Reads a file that may be growing. Its header may not state its size yet.
static Recording readRecording(const QString& path)
{
    QFile file(path);
    const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const auto content = readWav(bytes.left(largestWavHeader).toStdString(),
                                 static_cast<std::uint64_t>(bytes.size()));
    if (!content) {
        return {};
    }
    return {content->layout,
            bytes.mid(int(content->headerSize), static_cast<int>(content->dataSize))};
}

QByteArray VirtualCard::samples(int file) const
{
    return readRecording(wavPath(name, file)).samples;
}

qint64 VirtualCard::frames(int file) const
{
    return readRecording(wavPath(name, file)).frames();
}

bool VirtualCard::waitForFrames(qint64 count) const
{
    return waitFor([this, count] { return frames() >= count; });
}

QString VirtualCard::format(int file) const
{
    const WavLayout layout = readRecording(wavPath(name, file)).layout;
    if (layout.rate == 0) {
        return QString();
    }
    const QChar kind = layout.isFloat ? 'F' : layout.sampleSize == 1 ? 'U' : 'S';
    return kind + QString::number(8 * layout.sampleSize);
}

int VirtualCard::rate(int file) const
{
    return int(readRecording(wavPath(name, file)).layout.rate);
}

int VirtualCard::channels(int file) const
{
    return int(readRecording(wavPath(name, file)).layout.channels);
}

QString VirtualCard::recordPath() const
{
    return wavPath(name, 0);
}

QStringList VirtualCard::recordPaths() const
{
    QStringList paths;
    while (QFile::exists(wavPath(name, static_cast<int>(paths.size())))) {
        paths << wavPath(name, static_cast<int>(paths.size()));
    }
    return paths;
}

// ---- The events -------------------------------------------------------------------------------

QVector<VirtualCard::Event> VirtualCard::events() const
{
    QVector<Event> all;
    QFile file(eventsPath(name));
    const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    for (const QByteArray& line : bytes.split('\n')) {
        const QString text = QString::fromUtf8(line);
        if (!text.isEmpty()) {
            all.append({text.section(' ', 0, 0).toLongLong(), text.section(' ', 1, 1),
                        text.section(' ', 2)});
        }
    }
    return all;
}

QStringList VirtualCard::eventNames() const
{
    QStringList names;
    for (const Event& event : events()) {
        names << event.name;
    }
    return names;
}

bool VirtualCard::has(const QString& eventName) const
{
    return eventNames().contains(eventName);
}
