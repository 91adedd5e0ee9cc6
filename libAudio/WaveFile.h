// WaveFile: reads a RIFF/WAVE file of PCM (plain or extensible) into memory.
#pragma once

#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelBuffer.h"
#include "foundation/qelString.h"
#include "platform/win32.h"

#include <cstdint>

class LIBAUDIO_API WaveFile {
public:
    WaveFile();
    WaveFile(const WaveFile& other);
    WaveFile& operator=(const WaveFile& other);
    ~WaveFile();

    // Reads the file, replacing what an earlier load read. On failure the format is what was
    // read of this file and the bytes are empty; a data chunk shorter than it announces
    // fails too, keeping what arrived in a zero-filled buffer of the announced size.
    bool loadFile(const qel::String& path);
    WAVEFORMATEXTENSIBLE waveFormat() const { return m_format; }
    const qel::Buffer<unsigned char>& pcmData() const { return m_pcm; }
    std::uint64_t audioByteSize() const { return m_pcm.size(); }
    std::uint64_t numBlocks() const;
    qel::String fileExtension() const { return m_extension; }
    // nChannels blocks' worth of bytes from block n on; zero bytes beyond the data.
    bool nthAudioBlock(unsigned int n, qel::Array<unsigned char>& out) const;

private:
    qel::String m_extension;
    WAVEFORMATEXTENSIBLE m_format;
    qel::Buffer<unsigned char> m_pcm;
};
