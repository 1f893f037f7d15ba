#ifndef SIMPLE_PLAYER_AUDIO_OUTPUT_CHAIN_H
#define SIMPLE_PLAYER_AUDIO_OUTPUT_CHAIN_H

#include <QtCore/QString>

#include <gst/gst.h>

/// Makes an element, or logs "could not create FACTORY element" at ERROR and returns null.
/// The element is floating: adding it to a bin hands it over.
GstElement* makeElement(const char* factory, const char* name);

/// The four elements that every pipeline ends in: queue → audioconvert → audioresample → alsasink.
///
/// A value that lives for one initPipeline(): it fills the engine's queue and sink members and
/// keeps the two others until the pipeline owns all four. A failure undoes nothing.
class AudioOutputChain
{
public:
    /// @param queueMember  the engine's member that keeps the chain's first element
    /// @param sinkMember   the engine's member that keeps the chain's last element
    AudioOutputChain(GstElement*& queueMember, GstElement*& sinkMember);

    /// Makes all four elements in order. @return false at the first that cannot be made
    bool make(const QString& device);
    /// Makes the elements before the sink.
    bool makeConverters();
    /// Makes the sink and sets its device, also an empty one: there is no default.
    bool makeSink(const QString& device);

    /// Links the four elements, once a bin holds them. @return whether all links were made
    bool link() const;

    GstElement*& queue;
    GstElement* audioconvert = nullptr;
    GstElement* audioresample = nullptr;
    GstElement*& sink;
};

/// What linkDecodedPad() found and did.
enum class DecodedPad
{
    AlreadyLinked, ///< the pad had a peer and was left alone
    NotAudio,      ///< the pad carries something else and was left alone
    Offered,       ///< the pad was offered to the queue; whether that took it is not told
};

/// Links a pad that a decoder has just announced to the chain, if it carries audio.
/// Runs on a GStreamer streaming thread.
///
/// @param pad       the decoder's new source pad
/// @param queue     the first element of the chain
/// @param skipText  logged at WARN when the pad does not carry audio
/// @param skipWhat  follows `skipText` directly in that line
DecodedPad linkDecodedPad(GstPad* pad, GstElement* queue, const char* skipText,
                          const QString& skipWhat = QString());

#endif
