#ifndef BENCH_BARE_PIPELINE_H
#define BENCH_BARE_PIPELINE_H

#include "Contender.h"

#include <gst/gst.h>

/// The baseline of players that use GStreamer: a pipeline written by hand, with the elements that
/// this library uses, a bus watch, and nothing else.
class BarePipeline : public Playback
{
public:
    BarePipeline(std::string deviceName, bool loopItem, Outcome outcomeReceiver);
    ~BarePipeline() override;

    void start() override;

protected:
    /// Adds the elements before the output chain to the pipeline. Returns the decoder, whose pads
    /// are linked to the chain.
    virtual GstElement* makeSource(GstBin* bin) = 0;

private:
    static gboolean watchBus(GstBus* bus, GstMessage* message, void* self);
    static void linkPad(GstElement* decoder, GstPad* pad, void* queue);
    void endOfStream();

    const std::string device;
    const bool loop;
    const Outcome outcome;
    GstElement* pipeline = nullptr;
    GstElement* decoder = nullptr;
};

/// A pipeline with `uridecodebin` as its source.
std::unique_ptr<Playback> makeBareUriPipeline(const std::string& item, const std::string& device,
                                              bool loop, Outcome outcome);

/// A pipeline with `fdsrc` as its source, which reads the named pipe `item` on its own thread.
std::unique_ptr<Playback> makeBareStreamPipeline(const std::string& item, const std::string& device,
                                                 Outcome outcome);

#endif
