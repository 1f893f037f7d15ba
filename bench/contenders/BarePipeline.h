#ifndef BENCH_BARE_PIPELINE_H
#define BENCH_BARE_PIPELINE_H

#include "Contender.h"

#include <gst/gst.h>

/// The pipeline that anybody would write by hand: the elements that this library uses, a bus watch,
/// and nothing else. No player that stands on GStreamer can do with less.
class BarePipeline : public Playback
{
public:
    BarePipeline(std::string deviceName, bool loopItem, Outcome outcomeReceiver);
    ~BarePipeline() override;

    void start() override;

protected:
    /// Makes what stands before the output chain and gives back the decoder, whose pads are linked
    /// to the chain.
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

/// With `uridecodebin` at the front.
std::unique_ptr<Playback> makeBareUriPipeline(const std::string& item, const std::string& device,
                                              bool loop, Outcome outcome);

/// With `fdsrc` at the front, which reads the named pipe `item` on a thread of its own.
std::unique_ptr<Playback> makeBareStreamPipeline(const std::string& item, const std::string& device,
                                                 Outcome outcome);

#endif
