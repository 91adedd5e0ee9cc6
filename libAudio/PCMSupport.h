// Wave formats, durations and block counts, test tones, signal statistics, and writing
// PCM to WAV files. Sample arithmetic reads and writes signed 16-bit little-endian values.
#pragma once

#include "foundation/export.h"
#include "foundation/qelBuffer.h"
#include "foundation/qelString.h"
#include "platform/win32.h"

namespace libAudio {

class StaticPCMBuffer;

struct LIBAUDIO_API PCMTrack {
    enum Channel { LEFT = 0, RIGHT = 1 };
    qel::Buffer<unsigned char> pcm;
    WAVEFORMATEX format{};
};

LIBAUDIO_API void createWaveformatEx(unsigned int channels, unsigned int bitsPerSample,
                                     unsigned int samplesPerSec, WAVEFORMATEX& out);
LIBAUDIO_API void createWaveformatExtend(unsigned int channels, unsigned int bitsPerSample,
                                         unsigned int samplesPerSec, unsigned int channelMask,
                                         unsigned short validBitsPerSample,
                                         WAVEFORMATEXTENSIBLE& out);

LIBAUDIO_API unsigned int numPCMBlock(const WAVEFORMATEX& fmt, double seconds);
LIBAUDIO_API unsigned int numPCMBlock(const WAVEFORMATEX& fmt, unsigned int byteCount);
LIBAUDIO_API unsigned int blocksToMiliseconds(unsigned int blocks, const WAVEFORMATEX& fmt);

LIBAUDIO_API bool createPCMBuffer(const WAVEFORMATEX& fmt, double seconds, StaticPCMBuffer& out);
LIBAUDIO_API bool createSinusoid(PCMTrack::Channel channel, unsigned int amplitude,
                                 double frequency, StaticPCMBuffer& buffer);

// Mean and population standard deviation of one channel of 16-bit samples. The raw forms
// read the sample at byte offset i * blockAlign + channel * 2 of block i.
double mean(const unsigned char* data, unsigned int numBlocks, unsigned int blockAlign,
            unsigned int channel);
LIBAUDIO_API double mean(const StaticPCMBuffer& buffer, unsigned int channel);
LIBAUDIO_API double stdDev(const unsigned char* data, unsigned int numBlocks,
                           unsigned int blockAlign, unsigned int channel);
LIBAUDIO_API double stdDev(const StaticPCMBuffer& buffer, unsigned int channel);

// Write a RIFF/WAVE file with a 44-byte header; false when the file cannot be opened.
LIBAUDIO_API bool createPCMWaveFile(const qel::String& path, const WAVEFORMATEX& fmt,
                                    const unsigned char* data, unsigned long long size);
LIBAUDIO_API bool writePCMToWaveFile(const qel::String& path, const StaticPCMBuffer& buffer);
LIBAUDIO_API bool writePCMToWaveFile(const qel::String& path, const PCMTrack& track);

} // namespace libAudio
