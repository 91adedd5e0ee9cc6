#include "AudioTestSupport.h"
#include "libAudio/SignalAnalysis.h"
#include "libAudio/StaticPCMBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>
#include <string>

namespace {

using namespace audiotest;
using namespace libAudio;

const double kHalfScaleSineDb = 20.0 * std::log10(0.5 / std::sqrt(2.0)); // -9.03 dB

// A buffer of the given format whose samples are the given bytes.
StaticPCMBuffer pcmBuffer(const WAVEFORMATEXTENSIBLE& format, const std::string& bytes) {
    StaticPCMBuffer buffer;
    buffer.set(audiotest::bufferOf(bytes), format);
    return buffer;
}

// Mono samples of sample(i) for i < blocks, each encoded by encode.
std::string encoded(unsigned blocks, const std::function<double(unsigned)>& sample,
                    const std::function<std::string(double)>& encode) {
    std::string bytes;
    for (unsigned i = 0; i < blocks; ++i) {
        bytes += encode(sample(i));
    }
    return bytes;
}

std::function<double(unsigned)> sine(double amplitude, double hz, unsigned rate) {
    return [=](unsigned i) {
        return amplitude * std::sin(2 * std::numbers::pi * hz * i / rate);
    };
}

std::string int24(double v) {
    std::uint32_t code = std::uint32_t(std::int32_t(std::lround(v * 8388607.0)));
    return {char(code & 0xFF), char(code >> 8 & 0xFF), char(code >> 16 & 0xFF)};
}

std::string float32(double v) {
    float f = float(v);
    std::string bytes(4, '\0');
    std::memcpy(bytes.data(), &f, 4);
    return bytes;
}

WAVEFORMATEXTENSIBLE extensible(unsigned channels, unsigned bits, unsigned rate, const GUID& sub) {
    WAVEFORMATEXTENSIBLE f{};
    createWaveformatExtend(channels, bits, rate, channels == 1 ? 4 : 3, WORD(bits), f);
    f.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.Format.cbSize = 22;
    f.SubFormat = sub;
    return f;
}

TEST(SignalAnalysis, FindsGeneratedTonesInTheirChannel) {
    struct Case {
        unsigned rate;
        double hz, seconds;
    };
    const Case cases[] = {{48000, 1000, 0.25},
                          {44100, 440, 0.5},
                          {8000, 3100, 0.1},
                          {96000, 50, 1.0},
                          {48000, 15000, 0.3}};
    for (const Case& c : cases) {
        StaticPCMBuffer buffer;
        ASSERT_TRUE(createPCMBuffer(pcmFormat(2, 16, c.rate).Format, c.seconds, buffer));
        ASSERT_TRUE(createSinusoid(PCMTrack::RIGHT, 16384, c.hz, buffer));
        EXPECT_NEAR(dominantFrequency(buffer, 1), c.hz, c.hz * 0.001) << c.hz << " Hz";
        EXPECT_NEAR(levelDbfs(buffer, 1), kHalfScaleSineDb, 0.05) << c.hz << " Hz";
        // The other channel stayed silent: reading it must not pick up the tone.
        EXPECT_EQ(dominantFrequency(buffer, 0), 0.0) << c.hz << " Hz";
        EXPECT_EQ(levelDbfs(buffer, 0), kSilenceDbfs) << c.hz << " Hz";
    }
}

TEST(SignalAnalysis, DecodesEachSampleEncoding) {
    const unsigned rate = 48000;
    // 24-bit stereo with the tone on the right and a quarter-scale negative constant left.
    std::string stereo24 =
        encoded(12000, sine(0.5, 1234.5, rate), [](double v) { return int24(-0.25) + int24(v); });
    StaticPCMBuffer b24 = pcmBuffer(pcmFormat(2, 24, rate), stereo24);
    EXPECT_NEAR(dominantFrequency(b24, 1), 1234.5, 1.2345);
    EXPECT_NEAR(levelDbfs(b24, 1), kHalfScaleSineDb, 0.05);
    EXPECT_NEAR(levelDbfs(b24, 0), 20 * std::log10(0.25), 0.01);

    StaticPCMBuffer f32 = pcmBuffer(extensible(1, 32, rate, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT),
                                    encoded(24000, sine(1.0, 997, rate), float32));
    EXPECT_NEAR(dominantFrequency(f32, 0), 997, 0.997);
    EXPECT_NEAR(levelDbfs(f32, 0), -3.01, 0.01);

    // Extreme codes: full scale either way reads 0 dB, the offset of 8-bit is removed.
    StaticPCMBuffer u8 = pcmBuffer(pcmFormat(1, 8, 8000), std::string("\x00\xff\x00\xff", 4));
    EXPECT_NEAR(levelDbfs(u8, 0), 0.0, 0.05);
    EXPECT_EQ(levelDbfs(pcmBuffer(pcmFormat(1, 8, 8000), std::string(100, '\x80')), 0),
              kSilenceDbfs);
    std::string extremes24 = std::string("\xff\xff\x7f\x00\x00\x80", 6);
    EXPECT_NEAR(levelDbfs(pcmBuffer(pcmFormat(1, 24, 8000), extremes24), 0), 0.0, 0.001);
    std::string extremes32 = le32(0x7FFFFFFF) + le32(0x80000000);
    EXPECT_NEAR(
        levelDbfs(pcmBuffer(extensible(1, 32, 8000, KSDATAFORMAT_SUBTYPE_PCM), extremes32), 0), 0.0,
        0.001);
}

TEST(SignalAnalysis, ToneInNoiseAtTwentyFourDb) {
    const unsigned rate = 48000;
    const double amplitude = 0.3;
    const double noise = amplitude / std::sqrt(2.0) / std::pow(10.0, 24.0 / 20.0);
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        std::normal_distribution<double> gauss(0.0, noise);
        auto tone = sine(amplitude, 1000, rate);
        std::string bytes = encoded(
            12000, [&](unsigned i) { return tone(i) + gauss(random); }, float32);
        StaticPCMBuffer b =
            pcmBuffer(extensible(1, 32, rate, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT), bytes);
        EXPECT_NEAR(dominantFrequency(b, 0), 1000, 10) << "seed " << seed;
        // Tone and noise powers add: 24 dB apart the noise raises the level by 0.017 dB.
        EXPECT_NEAR(levelDbfs(b, 0), 20 * std::log10(amplitude / std::sqrt(2.0)), 0.1);
    }
}

TEST(SignalAnalysis, SpectrumIsCalibratedAndCapped) {
    const unsigned rate = 48000;
    // 3000 Hz falls exactly on bin 1024 of a 16384-point transform.
    StaticPCMBuffer b = pcmBuffer(extensible(1, 32, rate, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT),
                                  encoded(16384, sine(1.0, 3000, rate), float32));
    Spectrum s = magnitudeSpectrum(b, 0);
    ASSERT_EQ(s.magnitudeDb.size(), 8193u);
    EXPECT_DOUBLE_EQ(s.binHz, rate / 16384.0);
    auto peak = std::max_element(s.magnitudeDb.begin(), s.magnitudeDb.end());
    EXPECT_EQ(peak - s.magnitudeDb.begin(), 1024);
    EXPECT_NEAR(*peak, 0.0, 0.01);
    EXPECT_LT(s.magnitudeDb[2048], -100.0); // far from the tone: only rounding noise

    // Ten seconds: the analysis takes 2^18 samples and still finds the tone.
    StaticPCMBuffer longTone;
    ASSERT_TRUE(createPCMBuffer(pcmFormat(1, 16, rate).Format, 10.0, longTone));
    ASSERT_TRUE(createSinusoid(PCMTrack::LEFT, 8000, 440, longTone));
    EXPECT_EQ(magnitudeSpectrum(longTone, 0).magnitudeDb.size(), (1u << 17) + 1);
    EXPECT_NEAR(dominantFrequency(longTone, 0), 440, 0.44);

    // Silence: every bin at the floor; a constant is no tone either.
    StaticPCMBuffer silent;
    ASSERT_TRUE(createPCMBuffer(pcmFormat(1, 16, rate).Format, 0.1, silent));
    Spectrum quiet = magnitudeSpectrum(silent, 0);
    ASSERT_FALSE(quiet.magnitudeDb.empty());
    EXPECT_EQ(*std::max_element(quiet.magnitudeDb.begin(), quiet.magnitudeDb.end()), kSilenceDbfs);
    StaticPCMBuffer dc = pcmBuffer(pcmFormat(1, 16, rate), encoded(
                                                               4800, [](unsigned) { return 0.0; },
                                                               [](double) { return le16(8192); }));
    EXPECT_EQ(dominantFrequency(dc, 0), 0.0);
    EXPECT_NEAR(levelDbfs(dc, 0), 20 * std::log10(0.25), 0.001);
}

TEST(SignalAnalysis, BadInputGivesNeutralResultsAndAnError) {
    WAVEFORMATEXTENSIBLE noAlign = pcmFormat(2, 16, 48000);
    noAlign.Format.nBlockAlign = 0;
    WAVEFORMATEXTENSIBLE narrow = pcmFormat(2, 16, 48000);
    narrow.Format.nBlockAlign = 2; // channel 1 would lie in the next block
    const GUID alaw = {
        0x00000006, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
    struct Case {
        const char* what;
        WAVEFORMATEXTENSIBLE format;
        std::string bytes;
        unsigned channel;
    };
    const Case cases[] = {
        {"no block size", noAlign, counting(64), 0},
        {"channel beyond the format", pcmFormat(2, 16, 48000), counting(64), 2},
        {"block too narrow", narrow, counting(64), 1},
        {"empty buffer", pcmFormat(1, 16, 48000), "", 0},
        {"partial block only", pcmFormat(2, 24, 48000), counting(5), 0},
        {"12-bit samples", pcmFormat(1, 12, 48000), counting(64), 0},
        {"a-law", extensible(1, 8, 48000, alaw), counting(64), 0},
    };
    for (const Case& c : cases) {
        testsupport::LogCapture log;
        StaticPCMBuffer b = pcmBuffer(c.format, c.bytes);
        EXPECT_EQ(levelDbfs(b, c.channel), kSilenceDbfs) << c.what;
        EXPECT_EQ(dominantFrequency(b, c.channel), 0.0) << c.what;
        Spectrum s = magnitudeSpectrum(b, c.channel);
        EXPECT_TRUE(s.magnitudeDb.empty()) << c.what;
        EXPECT_EQ(s.binHz, 0.0) << c.what;
        EXPECT_TRUE(channelSamples(b, c.channel).empty()) << c.what;
        EXPECT_EQ(log.texts("libAudio.pcmsupport", kError).size(), 4u) << c.what;
    }

    // Without a sample rate there is a level but no frequency.
    StaticPCMBuffer noRate = pcmBuffer(pcmFormat(1, 16, 0), le16(16384) + le16(0xC000));
    EXPECT_NEAR(levelDbfs(noRate, 0), 20 * std::log10(0.5), 0.001);
    EXPECT_EQ(dominantFrequency(noRate, 0), 0.0);

    // A partial last block is left out, not read past.
    StaticPCMBuffer ragged = pcmBuffer(pcmFormat(2, 16, 8000), le16(100) + le16(200) + le16(300));
    EXPECT_EQ(channelSamples(ragged, 1), std::vector<double>{200 / 32768.0});
}

} // namespace
