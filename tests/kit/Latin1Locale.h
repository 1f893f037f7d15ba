#ifndef KIT_LATIN1_LOCALE_H
#define KIT_LATIN1_LOCALE_H

#include <QtCore/QTextCodec>

/// Makes Latin-1 the locale's encoding for Qt during its lifetime, so that a test can distinguish
/// UTF-8 from the locale's encoding.
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
