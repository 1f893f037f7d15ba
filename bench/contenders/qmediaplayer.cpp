// Qt Multimedia. It always plays on ALSA's default device.
#include "Contender.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QUrl>
#include <QtMultimedia/QMediaPlayer>

namespace {

class QtPlayback : public Playback
{
public:
    QtPlayback(const std::string& item, const Outcome& outcome)
    {
        player.setMedia(QUrl::fromLocalFile(QString::fromStdString(item)));
        QObject::connect(&player, &QMediaPlayer::mediaStatusChanged,
                         [outcome](QMediaPlayer::MediaStatus status) {
                             if (status == QMediaPlayer::EndOfMedia) {
                                 outcome(true);
                             }
                         });
        QObject::connect(&player, QOverload<QMediaPlayer::Error>::of(&QMediaPlayer::error),
                         [outcome](QMediaPlayer::Error) { outcome(false); });
    }

    void start() override { player.play(); }

private:
    QMediaPlayer player;
};

} // namespace

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& /*device*/,
                                             bool /*loop*/, Outcome outcome)
{
    return std::make_unique<QtPlayback>(item, outcome);
}
