// The PCMTrack of the legacy renderer and capture: a description of the caller's
// StaticPCMBuffer (format, bytes and size) that refers to its storage instead of copying it,
// so that the device plays or records the buffer itself.
#pragma once

#include "libAudio/PCMSupport.h"
#include "libAudio/StaticPCMBuffer.h"

namespace libAudio::legacytrack {

// Without a buffer the track is empty, which the wave devices refuse.
inline void describe(PCMTrack& track, StaticPCMBuffer* pcm) {
    if (!pcm) {
        track.format = WAVEFORMATEX{};
        track.pcm.release();
        return;
    }
    track.format = pcm->format().Format;
    track.pcm.refer(pcm->pcmArray().data(), pcm->pcmArray().size());
}

// A copy that refers to the same bytes.
inline void share(PCMTrack& to, const PCMTrack& from) {
    to.format = from.format;
    to.pcm.refer(const_cast<unsigned char*>(from.pcm.data()), from.pcm.size());
}

} // namespace libAudio::legacytrack
