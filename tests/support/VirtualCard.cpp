#include "support/VirtualCard.h"

#include "support/TestProcess.h"
#include "support/Waiting.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>
#include <QtCore/QSaveFile>
#include <QtCore/QtEndian>

#include <mutex>

// ---- The configuration ------------------------------------------------------------------------

namespace {

/// The cards that ALSA knows now, by name, each with its part of the configuration.
struct LivingCards
{
    std::mutex mutex;
    QMap<QString, QString> configurations; ///< guarded by mutex
    int version = 0;                       ///< guarded by mutex
};

LivingCards& livingCards()
{
    static LivingCards cards;
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

static QString quoted(QString text)
{
    return '"' + text.replace('\\', "\\\\").replace('"', "\\\"") + '"';
}

static QString configurationOf(const QString& name, const VirtualCard::Settings& settings)
{
    QStringList lines = {
        QStringLiteral("type virtualcard"),
        "record " + quoted(wavPath(name, 0)),
        "events " + quoted(eventsPath(name)),
        "speed " + QString::number(settings.speed, 'f', 6),
        QStringLiteral("pause ") + (settings.canPause ? "yes" : "no"),
        QStringLiteral("starve ") + (settings.underruns ? "xrun" : "wait"),
    };
    if (!settings.refuse.isEmpty()) {
        lines << "refuse " + settings.refuse;
    }
    if (settings.vanishAfter >= 0) {
        lines << QStringLiteral("vanish_after %1").arg(settings.vanishAfter);
    }
    if (settings.stallAfter >= 0) {
        lines << QStringLiteral("stall_after %1").arg(settings.stallAfter);
    }
    return QStringLiteral("pcm.%1 {\n    %2\n}\n").arg(name, lines.join("\n    "));
}

static QString commonConfiguration()
{
    QFile file(QStringLiteral(VIRTUALCARD_TEMPLATE));
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("VirtualCard: %s: %s", VIRTUALCARD_TEMPLATE, qPrintable(file.errorString()));
    }
    return QString::fromUtf8(file.readAll())
        .replace("@VIRTUALCARD_PLUGIN@", QStringLiteral(VIRTUALCARD_PLUGIN));
}

/// Writes the configuration of all living cards. The mutex of `cards` is held.
static void writeConfiguration(LivingCards& cards)
{
    const QString path = TestProcess::path(QStringLiteral("asound.conf"));
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(commonConfiguration().toUtf8());
        for (const QString& configuration : qAsConst(cards.configurations)) {
            file.write(configuration.toUtf8());
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

VirtualCard::Settings VirtualCard::Settings::standingStill()
{
    Settings settings;
    settings.stallAfter = 4800;
    return settings;
}

VirtualCard::VirtualCard(const QString& cardName, const Settings& settings) : name(cardName)
{
    static const QRegularExpression allowed(QStringLiteral("^[A-Za-z0-9_-]+$"));
    LivingCards& cards = livingCards();
    const std::lock_guard<std::mutex> guard(cards.mutex);
    if (!allowed.match(name).hasMatch() || cards.configurations.contains(name)) {
        qFatal("VirtualCard: \"%s\" is no name for a new card", qPrintable(name));
    }
    // What an earlier card of this name has left.
    for (const QString& file : recordPaths()) {
        QFile::remove(file);
    }
    QFile::remove(eventsPath(name));
    cards.configurations.insert(name, configurationOf(name, settings));
    writeConfiguration(cards);
}

VirtualCard::VirtualCard(const QString& cardName) : VirtualCard(cardName, Settings())
{
}

VirtualCard::~VirtualCard()
{
    LivingCards& cards = livingCards();
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

/// A WAV file as the card writes it.
struct Wav
{
    int tag = 0; ///< 1 for integers, 3 for floats
    int channels = 0;
    int rate = 0;
    int bits = 0; ///< of one sample
    QByteArray samples;

    int frameSize() const { return channels * bits / 8; }
};

template <typename Integer>
int integerAt(const QByteArray& bytes, int offset)
{
    return static_cast<int>(qFromLittleEndian<Integer>(bytes.constData() + offset));
}

} // namespace

/// Reads a file that may be growing, whose header may not yet tell its size.
static Wav readWav(const QString& path)
{
    Wav wav;
    QFile file(path);
    const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const int data = bytes.left(80).indexOf("data");
    if (data < 36) {
        return wav;
    }
    wav.tag = integerAt<quint16>(bytes, 20);
    wav.channels = integerAt<quint16>(bytes, 22);
    wav.rate = integerAt<quint32>(bytes, 24);
    wav.bits = integerAt<quint16>(bytes, 34);
    if (wav.tag == 0xFFFE && data > 46) {
        wav.tag = integerAt<quint16>(bytes, 44);
    }
    int size = bytes.size() - data - 8;
    const int told = integerAt<quint32>(bytes, data + 4);
    if (told % 2 == 1 && size == told + 1) {
        size = told; // the padding byte behind an odd number of bytes
    }
    wav.samples = bytes.mid(data + 8, size - size % qMax(1, wav.frameSize()));
    return wav;
}

QByteArray VirtualCard::samples(int file) const
{
    return readWav(wavPath(name, file)).samples;
}

qint64 VirtualCard::frames(int file) const
{
    const Wav wav = readWav(wavPath(name, file));
    return wav.samples.size() / qMax(1, wav.frameSize());
}

bool VirtualCard::waitForFrames(qint64 count) const
{
    return waitFor([this, count] { return frames() >= count; });
}

QString VirtualCard::format(int file) const
{
    const Wav wav = readWav(wavPath(name, file));
    if (wav.bits == 0) {
        return QString();
    }
    const QChar kind = wav.tag == 3 ? 'F' : wav.bits == 8 ? 'U' : 'S';
    return kind + QString::number(wav.bits);
}

int VirtualCard::rate(int file) const
{
    return readWav(wavPath(name, file)).rate;
}

int VirtualCard::channels(int file) const
{
    return readWav(wavPath(name, file)).channels;
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
