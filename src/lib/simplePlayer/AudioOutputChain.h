#ifndef SIMPLE_PLAYER_AUDIO_OUTPUT_CHAIN_H
#define SIMPLE_PLAYER_AUDIO_OUTPUT_CHAIN_H

#include <QtCore/QString>

#include <gst/gst.h>

/// Creates an element, or logs "could not create FACTORY element" at ERROR and returns null.
/// The element has a floating reference, which a bin takes over.
GstElement* makeElement(const char* factory, const char* name);

/// The four elements that every pipeline ends in: queue → audioconvert → audioresample → alsasink.
///
/// Used during one call of initPipeline(). It sets the engine's queue and sink members and keeps
/// the other two elements until the pipeline owns all four. A failure undoes nothing.
class AudioOutputChain
{
public:
    /// @param queueMember  the engine's member for the first element of the chain
    /// @param sinkMember   the engine's member for the last element of the chain
    AudioOutputChain(GstElement*& queueMember, GstElement*& sinkMember);

    /// Creates all four elements in order. @return false at the first one that cannot be created
    bool make(const QString& device);
    /// Creates the elements before the sink.
    bool makeConverters();
    /// Creates the sink and sets its device, even if the name is empty: there is no default.
    bool makeSink(const QString& device);

    /// Links the four elements after they were added to a bin. @return whether all links were made
    bool link() const;

    GstElement*& queue;
    GstElement* audioconvert = nullptr;
    GstElement* audioresample = nullptr;
    GstElement*& sink;
};

/// The result of linkDecodedPad().
enum class DecodedPad
{
    AlreadyLinked, ///< the pad had a peer and was skipped
    NotAudio,      ///< the pad does not carry audio and was skipped
    Offered,       ///< the pad was linked to the queue, or the queue was already taken
};

/// Links a new source pad of a decoder to the chain if it carries audio.
/// Runs on a GStreamer streaming thread.
///
/// @param pad       the new source pad
/// @param queue     the first element of the chain
/// @param skipText  logged at WARN if the pad does not carry audio
/// @param skipWhat  follows `skipText` directly in that line
DecodedPad linkDecodedPad(GstPad* pad, GstElement* queue, const char* skipText,
                          const QString& skipWhat = QString());

#endif
