// A picture of one channel of a recording as a plain SVG file: the waveform above, the
// magnitude spectrum below with the strongest tone marked.
#pragma once

#include "libAudio/StaticPCMBuffer.h"

#include <string>

namespace audiodiag {

struct PlotRequest {
    std::string title;
    std::string subtitle; // one line under the title, e.g. the endpoint; may be empty
    unsigned int channel = 0;
};

// The SVG text; a buffer that cannot be measured gives panels that say so.
std::string plotSvg(const libAudio::StaticPCMBuffer& recording, const PlotRequest& request);

// Writes plotSvg to path; false with the reason in why.
bool writePlot(const std::string& path, const libAudio::StaticPCMBuffer& recording,
               const PlotRequest& request, std::string& why);

} // namespace audiodiag
