#ifndef KIT_LATIN1_LOCALE_H
#define KIT_LATIN1_LOCALE_H

#include <QtCore/QTextCodec>

/// Makes Latin-1 the locale's encoding for Qt while it lives, so that a text which is meant to be
/// UTF-8 is told from one in the locale's encoding.
class Latin1Locale
{
public:
    Latin1Locale() : previous(QTextCodec::codecForLocale())
    {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    }
    ~Latin1Locale() { QTextCodec::setCodecForLocale(previous); }
    Latin1Locale(const Latin1Locale&) = delete;
    Latin1Locale& operator=(const Latin1Locale&) = delete;

private:
    QTextCodec* previous;
};

#endif
