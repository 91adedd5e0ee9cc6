#include "AudioTestSupport.h"
#include "libAudio/PCMSupport.h"
#include "libAudio/StaticPCMBuffer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

using namespace audiotest;
using namespace libAudio;

const char* const kLogger = "libAudio.pcmsupport";

std::int16_t sampleAt(const StaticPCMBuffer& b, std::size_t sample) {
    std::int16_t v;
    std::memcpy(&v, b.pcmArray().data() + sample * 2, 2);
    return v;
}

TEST(WaveFormat, BaseRecordFollowsChannelCount) {
    struct Case {
        unsigned channels, bits, rate;
        Fields expected; // tag, channels, rate, avg, align, bits, cbSize
    };
    const Case cases[] = {
        {2, 16, 48000, {1, 2, 48000, 192000, 4, 16, 0}},
        {6, 16, 48000, {0xFFFE, 6, 48000, 576000, 12, 16, 22}},
        {3, 20, 44100, {0xFFFE, 3, 44100, 308700, 7, 20, 22}},
        // Only the low 16 bits of the channel count decide between plain and extensible.
        {0x10001, 16, 48000, {1, 1, 48000, 96000, 2, 16, 0}},
        // The product is signed: -12 / 8 truncates to -1, stored as 0xFFFF.
        {1, 0xFFFFFFF4u, 1, {1, 1, 1, 0xFFFF, 0xFFFF, 0xFFF4, 0}},
    };
    for (const Case& c : cases) {
        WAVEFORMATEX f;
        std::memset(&f, 0xAB, sizeof f);
        createWaveformatEx(c.channels, c.bits, c.rate, f);
        EXPECT_EQ(fields(f), c.expected) << c.channels << " channels, " << c.bits << " bits";
    }
}

TEST(WaveFormat, ExtensibleRecordAndZeroBlockRule) {
    WAVEFORMATEXTENSIBLE f;
    std::memset(&f, 0xAB, sizeof f);
    createWaveformatExtend(2, 16, 48000, 3, 16, f);
    EXPECT_EQ(fields(f.Format), (Fields{1, 2, 48000, 192000, 4, 16, 0}));
    EXPECT_EQ(f.dwChannelMask, 3u);
    EXPECT_EQ(f.Samples.wValidBitsPerSample, 16u);
    EXPECT_TRUE(f.SubFormat == KSDATAFORMAT_SUBTYPE_PCM);

    // Without a block size the byte rate comes from the valid bits instead of being 0.
    createWaveformatExtend(2, 0, 48000, 0x3F, 24, f);
    EXPECT_EQ(f.Format.nBlockAlign, 0u);
    EXPECT_EQ(f.Format.nAvgBytesPerSec, 1152000u);
    EXPECT_EQ(f.dwChannelMask, 0x3Fu);
}

TEST(PcmArithmetic, BlockCountsRoundHalfUp) {
    WAVEFORMATEX stereo = pcmFormat(2, 16, 48000).Format;
    EXPECT_EQ(numPCMBlock(stereo, 0.5), 24000u);
    EXPECT_EQ(numPCMBlock(stereo, 0.00001), 0u); // 0.48 + 0.5 truncates
    EXPECT_EQ(numPCMBlock(stereo, 10u), 2u);
    EXPECT_EQ(numPCMBlock(stereo, 3u), 0u);

    // A power-of-two rate makes the half-block durations exact.
    WAVEFORMATEX mono8 = pcmFormat(1, 8, 16384).Format;
    EXPECT_EQ(numPCMBlock(mono8, 2.5 / 16384), 3u);
    EXPECT_EQ(numPCMBlock(mono8, 2.49 / 16384), 2u);
}

TEST(PcmArithmetic, MillisecondsWrapIn32Bits) {
    WAVEFORMATEX stereo = pcmFormat(2, 16, 48000).Format;
    EXPECT_EQ(blocksToMiliseconds(48000, stereo), 1000u);
    EXPECT_EQ(blocksToMiliseconds(47, stereo), 0u);
    EXPECT_EQ(blocksToMiliseconds(480, stereo), 10u);
    // 4 * 1100000 * 1000 = 4.4e9 wraps to 105032704 before the division.
    EXPECT_EQ(blocksToMiliseconds(1100000, stereo), 547u);
}

TEST(CreatePCMBuffer, SizesZeroedStorageAndCopiesBaseFormat) {
    struct Case {
        WAVEFORMATEX fmt;
        double seconds;
        unsigned blocks;
    };
    const Case cases[] = {{pcmFormat(2, 16, 48000).Format, 0.5, 24000},
                          {pcmFormat(6, 16, 48000).Format, 0.25, 12000},
                          {pcmFormat(1, 16, 44100).Format, 1.0, 44100},
                          {pcmFormat(2, 16, 48000).Format, 0.00001, 0}};
    for (const Case& c : cases) {
        WAVEFORMATEXTENSIBLE stale{};
        createWaveformatExtend(1, 8, 8000, 3, 8, stale);
        StaticPCMBuffer out;
        out.set(bufferOf("stale"), stale);

        ASSERT_TRUE(createPCMBuffer(c.fmt, c.seconds, out)) << c.seconds;
        EXPECT_EQ(out.numBlocks(), c.blocks);
        EXPECT_EQ(out.pcmArray().size(), std::uint64_t(c.blocks) * c.fmt.nBlockAlign);
        EXPECT_EQ(bytesOf(out.pcmArray()), std::string(out.pcmArray().size(), '\0'));
        EXPECT_EQ(fields(out.format().Format), fields(c.fmt));
        EXPECT_EQ(out.format().dwChannelMask, 0u);
        EXPECT_EQ(out.format().Samples.wValidBitsPerSample, 0u);
        EXPECT_TRUE(out.format().SubFormat == GUID{});
        EXPECT_EQ(out.writeMarker(), 0u);
    }
}

TEST(CreatePCMBuffer, RefusesFormatWithoutRateOrBlockSizeAndKeepsOutput) {
    WAVEFORMATEX noRate = pcmFormat(2, 16, 48000).Format, noBlock = noRate;
    noRate.nAvgBytesPerSec = 0;
    noBlock.nBlockAlign = 0;
    for (const WAVEFORMATEX& fmt : {noRate, noBlock}) {
        StaticPCMBuffer out;
        out.initialize(3, pcmFormat(1, 16, 8000));
        out.pcmArray().data()[1] = 0x42;
        testsupport::LogCapture log;
        EXPECT_FALSE(createPCMBuffer(fmt, 1.0, out));
        EXPECT_EQ(untagged(log, kLogger, kError), std::vector<std::string>{"Invalid wave format"});
        EXPECT_EQ(out.pcmArray().size(), 6u);
        EXPECT_EQ(out.pcmArray().data()[1], 0x42);
        EXPECT_EQ(out.format().Format.nSamplesPerSec, 8000u);
    }
}

TEST(Sinusoid, QuarterRateToneGoesIntoOneChannelOnly) {
    struct Case {
        unsigned channels;
        PCMTrack::Channel channel;
        unsigned amplitude;
        std::array<std::int16_t, 4> period;
        unsigned sampleInBlock;
    };
    const Case cases[] = {
        {2, PCMTrack::LEFT, 16384, {0, 16384, 0, -16384}, 0},
        {2, PCMTrack::RIGHT, 16384, {0, 16384, 0, -16384}, 1},
        {1, PCMTrack::RIGHT, 16384, {0, 16384, 0, -16384}, 0}, // mono ignores the channel
        {6, PCMTrack::RIGHT, 1000, {0, 1000, 0, -1000}, 1},
        {2, PCMTrack::LEFT, 40000, {0, -25536, 0, 25536}, 0}, // wraps instead of clipping
    };
    for (const Case& c : cases) {
        StaticPCMBuffer buffer;
        buffer.initialize(8, pcmFormat(c.channels, 16, 48000));
        std::memset(buffer.pcmArray().data(), 0x7F, buffer.pcmArray().size());
        ASSERT_TRUE(createSinusoid(c.channel, c.amplitude, 12000.0, buffer));
        for (unsigned block = 0; block < 8; ++block) {
            for (unsigned s = 0; s < c.channels; ++s) {
                std::int16_t expected = s == c.sampleInBlock ? c.period[block % 4] : 0x7F7F;
                EXPECT_EQ(sampleAt(buffer, block * c.channels + s), expected)
                    << c.channels << " channels, block " << block << ", sample " << s;
            }
        }
    }
}

TEST(Sinusoid, RefusesBufferWithoutBlocks) {
    StaticPCMBuffer empty;
    empty.initialize(0, pcmFormat(2, 16, 48000));
    testsupport::LogCapture log;
    EXPECT_FALSE(createSinusoid(PCMTrack::LEFT, 1000, 440.0, empty));
    EXPECT_EQ(untagged(log, kLogger, kError),
              std::vector<std::string>{"No pcm storage in the wave buffer"});
}

TEST(SignalStatistics, MeanAndPopulationStdDevOfOneChannel) {
    struct Case {
        const char* name;
        unsigned channels, channel;
        std::vector<std::int16_t> interleaved;
        double mean, stdDev;
    };
    const Case cases[] = {
        {"constant", 1, 0, {7, 7, 7, 7}, 7.0, 0.0},
        {"square", 1, 0, {1000, -1000, 1000, -1000}, 0.0, 1000.0},
        {"negative", 1, 0, {-3, -1}, -2.0, 1.0},
        {"second channel", 2, 1, {30000, 1, 30000, 2, 30000, 3, 30000, 4}, 2.5, std::sqrt(1.25)},
        {"full scale", 2, 0, {-32768, 5, 32767, 5}, -0.5, 32767.5},
    };
    for (const Case& c : cases) {
        std::string bytes(c.interleaved.size() * 2, '\0');
        std::memcpy(bytes.data(), c.interleaved.data(), bytes.size());
        StaticPCMBuffer buffer;
        buffer.set(bufferOf(bytes), pcmFormat(c.channels, 16, 8000));
        const auto* raw = reinterpret_cast<const unsigned char*>(bytes.data());
        unsigned blocks = unsigned(c.interleaved.size() / c.channels);

        EXPECT_DOUBLE_EQ(mean(buffer, c.channel), c.mean) << c.name;
        EXPECT_DOUBLE_EQ(stdDev(buffer, c.channel), c.stdDev) << c.name;
        EXPECT_DOUBLE_EQ(stdDev(raw, blocks, c.channels * 2, c.channel), c.stdDev) << c.name;
    }
}

TEST(SignalStatistics, ResultsAreLoggedAndNoBlocksGiveNotANumber) {
    const std::int16_t samples[] = {0, 4};
    const auto* raw = reinterpret_cast<const unsigned char*>(samples);
    testsupport::LogCapture log;
    stdDev(raw, 2, 2, 0);
    std::vector<std::string> debug = untagged(log, kLogger, kDebug);
    std::erase_if(debug, [](const std::string& t) { return t.rfind("Signal", 0) != 0; });
    EXPECT_EQ(debug, (std::vector<std::string>{"Signal mean = 2", "Signal Std Dev = 2"}));

    StaticPCMBuffer empty;
    empty.initialize(0, pcmFormat(1, 16, 8000));
    EXPECT_TRUE(std::isnan(stdDev(raw, 0, 2, 0)));
    EXPECT_TRUE(std::isnan(mean(empty, 0)));
    EXPECT_TRUE(log.texts(kLogger, kError).empty());
}

TEST(SignalHelpers, SamplesOutsideNarrowBlocksAreNeitherWrittenNorRead) {
    // 8-bit stereo blocks are 2 bytes, but tones and statistics use 16-bit samples.
    StaticPCMBuffer buffer;
    buffer.initialize(4, pcmFormat(2, 8, 8000));
    for (auto touch : {+[](StaticPCMBuffer& b) { createSinusoid(PCMTrack::RIGHT, 900, 20.0, b); },
                       +[](StaticPCMBuffer& b) { mean(b, 1); },
                       +[](StaticPCMBuffer& b) {
                           stdDev(b, 1);
                       }}) {
        testsupport::LogCapture log;
        touch(buffer);
        EXPECT_EQ(buffer.pcmArray().size(), 8u);
        EXPECT_FALSE(log.texts(kLogger, kError).empty());
    }
}

} // namespace
