#include "AudioTestSupport.h"
#include "foundation/qelArray.h"
#include "libAudio/PCMSupport.h"
#include "libAudio/StaticPCMBuffer.h"
#include "libAudio/WaveFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace {

using namespace audiotest;

// Caps this process's address space at what it uses now plus headroom.
void limitAddressSpaceToCurrentPlus(rlim_t headroom) {
    std::ifstream status("/proc/self/status");
    std::string line;
    rlim_t used = 0;
    while (std::getline(status, line)) {
        if (line.rfind("VmSize:", 0) == 0) {
            used = rlim_t(std::stoull(line.substr(7))) * 1024; // in kB
        }
    }
    rlimit limit{used + headroom, used + headroom};
    if (used == 0 || setrlimit(RLIMIT_AS, &limit) != 0) {
        std::_Exit(3);
    }
}

const char* const kReader = "libAudio.wave";
const char* const kWriter = "libAudio.pcmsupport";

std::string riffWave(const std::string& chunks) {
    return chunk("RIFF", "WAVE" + chunks);
}

std::string wav(const std::string& fmtBody, const std::string& data) {
    return riffWave(chunk("fmt ", fmtBody) + chunk("data", data));
}

// A 40-byte extensible format chunk: base fields, cbSize 22, valid bits, mask, sub-format.
std::string extensibleFmt(std::uint16_t cbSize, std::uint32_t mask) {
    return fmtFields(0xFFFE, 2, 48000, 16) + le16(cbSize) + le16(16) + le32(mask) +
           std::string(reinterpret_cast<const char*>(&KSDATAFORMAT_SUBTYPE_PCM), 16);
}

class WaveFiles : public ::testing::Test {
protected:
    bool write(const std::string& name, const WAVEFORMATEX& fmt, const std::string& pcm) {
        return libAudio::createPCMWaveFile(qel::String(dir.path(name).c_str()), fmt,
                                           reinterpret_cast<const unsigned char*>(pcm.data()),
                                           pcm.size());
    }
    bool load(WaveFile& w, const std::string& path) {
        return w.loadFile(qel::String(path.c_str()));
    }
    ScratchDir dir;
};

TEST_F(WaveFiles, WriterEmitsFixedHeaderCountingCbSizeButWritingOnlyBaseFields) {
    struct Case {
        WAVEFORMATEX fmt;
        std::string pcm;
        std::uint32_t riffSize, fmtSize;
    };
    // The RIFF size is 4 more than what follows it; cbSize counts but is not written.
    const Case cases[] = {{pcmFormat(1, 16, 8000).Format, "\x01\x02\x03\x04", 44, 16},
                          {pcmFormat(6, 16, 48000).Format, counting(24), 62 + 24, 38}};
    for (const Case& c : cases) {
        testsupport::LogCapture log;
        ASSERT_TRUE(write("out.wav", c.fmt, c.pcm));
        const WAVEFORMATEX& f = c.fmt;
        EXPECT_EQ(dir.read("out.wav"),
                  "RIFF" + le32(c.riffSize) + "WAVE" + "fmt " + le32(c.fmtSize) +
                      fmtFields(f.wFormatTag, f.nChannels, f.nSamplesPerSec, f.wBitsPerSample) +
                      "data" + le32(unsigned(c.pcm.size())) + c.pcm);
        EXPECT_EQ(untagged(log, kWriter, kInfo),
                  (std::vector<std::string>{"Header Size " + std::to_string(c.fmtSize + 24),
                                            "Data size " + std::to_string(c.pcm.size()),
                                            "Raw Wave File written: " + dir.path("out.wav")}));
    }
}

TEST_F(WaveFiles, WriterReportsUnopenablePathSilently) {
    testsupport::LogCapture log;
    EXPECT_FALSE(write("no/such/dir/x.wav", pcmFormat(1, 16, 8000).Format, "ab"));
    EXPECT_TRUE(log.texts(kWriter, kInfo).empty());
    EXPECT_TRUE(log.texts(kWriter, kError).empty());
}

TEST_F(WaveFiles, WrittenFilesLoadBackUnchanged) {
    libAudio::StaticPCMBuffer tone;
    tone.initialize(64, pcmFormat(2, 16, 48000));
    libAudio::createSinusoid(libAudio::PCMTrack::RIGHT, 12000, 1000.0, tone);
    libAudio::PCMTrack track;
    track.pcm = bufferOf(counting(10));
    track.format = pcmFormat(1, 16, 22050).Format;

    const std::string tonePath = dir.path("tone.wav"), trackPath = dir.path("track.wav");
    ASSERT_TRUE(libAudio::writePCMToWaveFile(qel::String(tonePath.c_str()), tone));
    ASSERT_TRUE(libAudio::writePCMToWaveFile(qel::String(trackPath.c_str()), track));

    testsupport::LogCapture log;
    WaveFile w;
    EXPECT_EQ(w.fileExtension().toStdString(), ".wav");
    ASSERT_TRUE(load(w, tonePath));
    EXPECT_EQ(fields(w.waveFormat().Format), fields(tone.format().Format));
    EXPECT_EQ(bytesOf(w.pcmData()), bytesOf(tone.pcmArray()));
    EXPECT_EQ(w.numBlocks(), 64u);

    WaveFile copy(w);
    ASSERT_TRUE(load(w, trackPath));
    EXPECT_EQ(fields(w.waveFormat().Format), fields(track.format));
    EXPECT_EQ(bytesOf(w.pcmData()), counting(10));
    EXPECT_EQ(w.numBlocks(), 5u);
    EXPECT_EQ(bytesOf(copy.pcmData()), bytesOf(tone.pcmArray())); // the copy kept its own bytes
    EXPECT_TRUE(log.texts(kReader, kError).empty());
}

TEST_F(WaveFiles, ReaderAcceptsValidLayouts) {
    struct Case {
        const char* name;
        std::string bytes;
        std::uint16_t tag, cbSize;
        std::uint32_t channelMask;
    };
    const std::string data = counting(8);
    const Case cases[] = {
        {"16-byte format", wav(fmtFields(1, 2, 48000, 16), data), 1, 0, 0},
        {"18-byte format, cbSize 0", wav(fmtFields(1, 2, 48000, 16) + le16(0), data), 1, 0, 0},
        {"extensible", wav(extensibleFmt(22, 0x3F), data), 0xFFFE, 22, 0x3F},
        {"extensible, short cbSize",
         wav(fmtFields(0xFFFE, 2, 48000, 16) + le16(5) + std::string(6, '\0'), data), 0xFFFE, 5, 0},
        // Only the first 40 bytes of a longer format chunk are taken.
        {"oversized format", wav(extensibleFmt(32, 3) + std::string(10, '\x7F'), data), 0xFFFE, 32,
         3},
        {"data first, odd chunk between",
         riffWave(chunk("data", data) + chunk("JUNK", "odd") + std::string(1, '\0') +
                  chunk("fmt ", fmtFields(1, 2, 48000, 16))),
         1, 0, 0},
    };
    for (const Case& c : cases) {
        testsupport::LogCapture log;
        WaveFile w;
        ASSERT_TRUE(load(w, dir.write("ok.wav", c.bytes))) << c.name;
        WAVEFORMATEXTENSIBLE f = w.waveFormat();
        EXPECT_EQ(fields(f.Format), (Fields{c.tag, 2, 48000, 192000, 4, 16, c.cbSize})) << c.name;
        EXPECT_EQ(f.dwChannelMask, c.channelMask) << c.name;
        EXPECT_EQ(bytesOf(w.pcmData()), data) << c.name;
        EXPECT_TRUE(log.texts(kReader, kError).empty()) << c.name;
    }
}

TEST_F(WaveFiles, ReaderRefusesMalformedFilesWithTaggedMessages) {
    struct Case {
        bool exists;
        std::string contents, message; // '@' in message stands for the path
    };
    const std::string data = counting(8), pcm16 = fmtFields(1, 2, 48000, 16);
    const Case cases[] = {
        {false, "", "62 Fail to load wave file @"},
        {true, "",
         "76 File @ does not have a valid multimedia header " +
             std::to_string(MMIOERR_CHUNKNOTFOUND)},
        {true, chunk("RIFF", "AVI " + chunk("fmt ", pcm16)),
         "85 'File @ does not have a valid wave header"},
        {true, chunk("LIST", "WAVE" + chunk("fmt ", pcm16)),
         "85 'File @ does not have a valid wave header"},
        {true, riffWave(chunk("data", data)), "97 File @ does not have a valid file handle"},
        {true, wav(pcm16.substr(0, 14), data), "107 File @ has an invalid wave header size 14"},
        {true, "RIFF" + le32(100) + "WAVE" + chunk("fmt ", pcm16 + "abcd", 30),
         "118 Invalid wave format chunk, expected 30bytes read 20 bytes"},
        {true, wav(fmtFields(3, 2, 48000, 32), data),
         "126 Unable to process wave file with format tag 3"},
        {true, wav(pcm16 + le16(2), data),
         "134 Invalid wave format chunk, WAVE_FORMAT_PCM cbSize = 2 expected 0"},
        // After an extensible load, a 16-byte chunk must not inherit the earlier cbSize.
        {true, wav(fmtFields(0xFFFE, 2, 48000, 16), data),
         "142 Invalid extended wave format chunk, WAVE_FORMAT_EXTENSIBLE cbSize = 0, expected at "
         "least 22 bytes"},
        {true, riffWave(chunk("fmt ", pcm16) + chunk("LIST", "info")),
         "163 Cannot find wave data chunk"},
    };
    const std::string good = dir.write("good.wav", wav(extensibleFmt(22, 3), data));
    for (const Case& c : cases) {
        std::string path = c.exists ? dir.write("bad.wav", c.contents) : dir.path("missing.wav");
        std::string message = c.message;
        if (std::size_t at = message.find('@'); at != std::string::npos) {
            message.replace(at, 1, path);
        }
        WaveFile w;
        ASSERT_TRUE(load(w, good));
        testsupport::LogCapture log;
        EXPECT_FALSE(load(w, path)) << message;
        EXPECT_EQ(log.texts(kReader, kError), std::vector<std::string>{message});
        EXPECT_EQ(w.audioByteSize(), 0u) << message;
    }
}

TEST_F(WaveFiles, ShortDataChunkFailsQuietlyKeepingWhatArrivedInTheAnnouncedSize) {
    const std::string pcm16 = fmtFields(1, 2, 48000, 16);
    const std::string good = dir.write("good.wav", wav(pcm16, counting(40)));
    for (std::uint32_t sizeField : {8u, 1003u, 4096u * 1024u}) {
        std::string path = dir.write(
            "short.wav", riffWave(chunk("fmt ", pcm16) + chunk("data", "abcd", sizeField)));
        testsupport::LogCapture log;
        WaveFile w;
        ASSERT_TRUE(load(w, good));
        EXPECT_FALSE(load(w, path)) << sizeField;
        EXPECT_TRUE(log.texts(kReader, kError).empty()) << sizeField;
        EXPECT_EQ(w.audioByteSize(), sizeField);
        EXPECT_EQ(w.numBlocks(), sizeField / 4);
        EXPECT_EQ(bytesOf(w.pcmData()), "abcd" + std::string(sizeField - 4, '\0')) << sizeField;
    }
}

// A size whose zeros are refused fails with a record and keeps nothing of the data, neither
// this file's nor an earlier load's; the format is what was read, as after any failure.
TEST_F(WaveFiles, DataChunkThatCannotBeAllocatedFailsCleanly) {
    const std::string good = dir.write("good.wav", wav(extensibleFmt(22, 3), counting(40)));
    for (std::uint32_t sizeField : {0xFFFFFFF0u, 0x40000000u + 5u}) {
        std::string path = dir.write("huge.wav", riffWave(chunk("fmt ", fmtFields(1, 1, 8000, 16)) +
                                                          chunk("data", "abcd", sizeField)));
        WaveFile w;
        ASSERT_TRUE(load(w, good));
        testsupport::LogCapture log;
        EXPECT_FALSE(load(w, path));
        EXPECT_EQ(untagged(log, kReader, kError),
                  std::vector<std::string>{"Cannot allocate " + std::to_string(sizeField) +
                                           " bytes for the wave data chunk of " + path +
                                           " (the file holds 4)"});
        EXPECT_EQ(w.audioByteSize(), 0u);
        EXPECT_EQ(w.numBlocks(), 0u);
        EXPECT_EQ(w.pcmData().data(), nullptr);
        EXPECT_EQ(fields(w.waveFormat().Format), (Fields{1, 1, 8000, 16000, 2, 16, 0}));
        EXPECT_EQ(w.waveFormat().dwChannelMask, 0u);
    }
}

// Memory that the system refuses is a clean failure as well, not an exception.
TEST_F(WaveFiles, DataChunkBeyondTheAddressSpaceFailsCleanly) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators need the address space this test takes away";
#endif
    // 512 MiB announced, 4 bytes present: within what a short chunk may have padded.
    const std::uint32_t sizeField = 512u << 20;
    const std::string path =
        dir.write("big.wav", riffWave(chunk("fmt ", fmtFields(1, 1, 8000, 16)) +
                                      chunk("data", "abcd", sizeField)));
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            limitAddressSpaceToCurrentPlus(64u << 20);
            testsupport::LogCapture log;
            WaveFile w;
            bool loaded = true;
            try {
                loaded = load(w, path);
            } catch (...) {
                std::_Exit(2);
            }
            std::vector<std::string> errors = untagged(log, kReader, kError);
            bool clean = !loaded && w.audioByteSize() == 0 && errors.size() == 1 &&
                         errors[0].rfind("Cannot allocate 536870912 bytes", 0) == 0;
            std::_Exit(clean ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(WaveFiles, NthAudioBlockReturnsChannelsTimesBlockBytes) {
    struct Case {
        unsigned channels, n;
        std::string expected;
    };
    const std::string data = counting(16);
    const Case cases[] = {
        {2, 0, data.substr(0, 8)},
        {2, 1, data.substr(4, 8)},
        {2, 3, data.substr(12, 4) + std::string(4, '\0')}, // zeros past the end
        {2, 4, std::string(8, '\0')},
        {2, 0xFFFFFFFFu, std::string(8, '\0')},
        {1, 1, data.substr(2, 2)},
    };
    for (const Case& c : cases) {
        WaveFile w;
        ASSERT_TRUE(load(w, dir.write("n.wav", wav(fmtFields(1, c.channels, 8000, 16), data))));
        qel::Array<unsigned char> out;
        out.grow(13, 'j');
        EXPECT_TRUE(w.nthAudioBlock(c.n, out));
        EXPECT_EQ(std::string(out.begin(), out.end()), c.expected)
            << c.channels << " channels, block " << c.n;
    }
    qel::Array<unsigned char> out;
    EXPECT_TRUE(WaveFile().nthAudioBlock(2, out));
    EXPECT_TRUE(out.empty());
}

} // namespace
