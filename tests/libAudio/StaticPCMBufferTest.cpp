#include "AudioTestSupport.h"
#include "foundation/qelArray.h"
#include "libAudio/StaticPCMBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

namespace {

using namespace audiotest;
using libAudio::PCMTrack;
using libAudio::StaticPCMBuffer;

const char* const kLogger = "qelraudio";
const char* const kTooShort = "StaticPCMBuffer length is not long enough for the truncation. Check "
                              "numBlocks() and duration() and recalculate the truncation length";

// Ten 4-byte blocks holding the bytes 1..40.
StaticPCMBuffer tenBlocks() {
    StaticPCMBuffer b;
    b.set(bufferOf(counting(40)), pcmFormat(2, 16, 48000));
    return b;
}

TEST(StaticPCMBuffer, DefaultBufferMustBeSizedBeforeUse) {
    StaticPCMBuffer b;
    EXPECT_EQ(b.numBlocks(), 0u);
    EXPECT_EQ(b.writeMarker(), 4294967295u);
    EXPECT_EQ(fields(b.format().Format), (Fields{0, 0, 0, 0, 1, 8, 0}));

    // Filling it before initialize/set must not write through the stale marker.
    testsupport::LogCapture log;
    const std::string data = counting(16);
    EXPECT_EQ(b.fillDataBlocks(reinterpret_cast<const unsigned char*>(data.data()), 4), 0u);
    EXPECT_EQ(b.fillDataBlocks(bufferOf(data)), 0u);
    EXPECT_TRUE(b.pcmArray().empty());
    EXPECT_EQ(b.writeMarker(), 4294967295u);
    EXPECT_FALSE(log.texts(kLogger, kError).empty());
}

TEST(StaticPCMBuffer, FillingCopiesWholeBlocksUntilFull) {
    StaticPCMBuffer b;
    b.initialize(10, pcmFormat(2, 16, 48000));
    EXPECT_EQ(b.availableSpace(), 40u);
    EXPECT_EQ(b.writeMarker(), 0u);

    const std::string source = counting(100);
    const auto* src = reinterpret_cast<const unsigned char*>(source.data());
    EXPECT_EQ(b.fillDataBlocks(bufferOf(source.substr(0, 7))), 4u); // trailing 3 bytes ignored
    EXPECT_EQ(b.fillDataBlocks(src, 100), 36u);
    EXPECT_EQ(b.fillDataBlocks(src, 1), 0u);
    EXPECT_EQ(b.availableSpace(), 0u);
    EXPECT_EQ(bytesOf(b.pcmArray()), source.substr(0, 4) + source.substr(0, 36));

    b.zeroBuffer();
    EXPECT_EQ(bytesOf(b.pcmArray()), std::string(40, '\0'));
    EXPECT_EQ(b.writeMarker(), 40u);
    b.resetWriteMarker();
    EXPECT_EQ(b.availableSpace(), 40u);

    // A storage that is not a whole number of blocks is filled up to its last byte.
    b.set(bufferOf(std::string(10, '\0')), pcmFormat(2, 16, 48000));
    EXPECT_EQ(b.fillDataBlocks(src, 3), 10u);
    EXPECT_EQ(bytesOf(b.pcmArray()), source.substr(0, 10));
}

TEST(StaticPCMBuffer, CircularIndexWrapsAtBlockCount) {
    StaticPCMBuffer b = tenBlocks();
    EXPECT_EQ(b.circularBlockIndex(25), 5u);
    EXPECT_EQ(b.circularBlockIndex(9), 9u);
    EXPECT_EQ(b.circularBlockIndex(10), 0u);

    testsupport::LogCapture log;
    EXPECT_EQ(StaticPCMBuffer().circularBlockIndex(7), 0u);
    EXPECT_FALSE(log.texts(kLogger, kError).empty());
}

TEST(StaticPCMBuffer, SampleBlockRunsWithAndWithoutWrap) {
    struct Case {
        unsigned start, count;
        bool wrap;
        std::vector<int> blocks; // source block per output block, -1 for zeros
    };
    const Case cases[] = {
        {2, 3, false, {2, 3, 4}},
        {12, 2, false, {2, 3}},
        {0, 10, true, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
        // The first wrapped piece reaches one block past the end, which reads as zeros.
        {8, 4, true, {8, 9, -1, 0}},
        {8, 4, false, {8, 9, -1, -1}},
    };
    const StaticPCMBuffer b = tenBlocks();
    const std::string storage = counting(40);
    for (const Case& c : cases) {
        qel::Buffer<unsigned char> out = bufferOf(std::string(100, '\xEE'));
        b.pcmSampleBlock(c.start, c.count, c.wrap, out);
        std::string expected;
        for (int block : c.blocks) {
            expected += block < 0 ? std::string(4, '\0') : storage.substr(block * 4, 4);
        }
        EXPECT_EQ(bytesOf(out), expected) << c.start << "+" << c.count << " wrap " << c.wrap;
    }

    testsupport::LogCapture log;
    qel::Buffer<unsigned char> out;
    StaticPCMBuffer empty(pcmFormat(2, 16, 48000));
    empty.pcmSampleBlock(3, 2, true, out);
    EXPECT_EQ(bytesOf(out), std::string(8, '\0'));
    EXPECT_FALSE(log.texts(kLogger, kError).empty());
}

TEST(StaticPCMBuffer, SingleSampleBlockAndOutOfRangeIndex) {
    const StaticPCMBuffer b = tenBlocks();
    qel::Buffer<unsigned char> out;
    ASSERT_TRUE(b.pcmSample(3, out));
    EXPECT_EQ(bytesOf(out), counting(40).substr(12, 4));

    testsupport::LogCapture log;
    for (unsigned index : {10u, 12u}) {
        EXPECT_FALSE(b.pcmSample(index, out));
        EXPECT_EQ(bytesOf(out), counting(40).substr(12, 4)); // left as it was
    }
    EXPECT_EQ(untagged(log, kLogger, kError),
              (std::vector<std::string>{"Channel 10 is not defined in the PCM buffer.",
                                        "Channel 12 is not defined in the PCM buffer."}));
}

TEST(StaticPCMBuffer, ChannelDataDeinterleavesStereo) {
    const StaticPCMBuffer stereo = tenBlocks();
    const std::string storage = counting(40);
    qel::Buffer<unsigned char> out;
    for (PCMTrack::Channel channel : {PCMTrack::LEFT, PCMTrack::RIGHT}) {
        std::string expected;
        for (std::size_t block = 0; block < 10; ++block) {
            expected += storage.substr(block * 4 + channel * 2, 2);
        }
        ASSERT_TRUE(stereo.getChannelData(channel, out));
        EXPECT_EQ(bytesOf(out), expected) << channel;
    }

    StaticPCMBuffer mono;
    mono.set(bufferOf(storage), pcmFormat(1, 16, 48000));
    ASSERT_TRUE(mono.getChannelData(PCMTrack::RIGHT, out));
    EXPECT_EQ(bytesOf(out), storage);

    testsupport::LogCapture log;
    EXPECT_FALSE(stereo.getChannelData(PCMTrack::Channel(2), out));
    EXPECT_EQ(bytesOf(out), storage);
    EXPECT_EQ(
        untagged(log, kLogger, kError),
        std::vector<std::string>{"This class is not ready for multi-channel PCM storage yet"});
}

TEST(StaticPCMBuffer, TruncateFrontDropsLeadingSeconds) {
    struct Case {
        double seconds;
        bool ok;
        std::size_t keptFrom; // byte offset of the first byte kept
    };
    // One second: 100 blocks of 2 bytes at 100 Hz.
    const Case cases[] = {{0.5, true, 100}, {0.999, true, 198}, {0.0, true, 0}, {1.0, false, 0}};
    const std::string storage = counting(200);
    for (const Case& c : cases) {
        StaticPCMBuffer b;
        b.set(bufferOf(storage), pcmFormat(1, 16, 100));
        b.fillDataBlocks(reinterpret_cast<const unsigned char*>(storage.data()), 3);
        testsupport::LogCapture log;
        EXPECT_EQ(b.truncateFront(c.seconds), c.ok) << c.seconds;
        EXPECT_EQ(bytesOf(b.pcmArray()), storage.substr(c.keptFrom)) << c.seconds;
        EXPECT_EQ(b.pcmArray().capacity(), b.pcmArray().size());
        EXPECT_EQ(b.writeMarker(), 6u);
        EXPECT_EQ(untagged(log, kLogger, kError),
                  std::vector<std::string>(c.ok ? 0 : 1, kTooShort));
    }
}

TEST(StaticPCMBuffer, DurationCountsFractionalBlocks) {
    struct Case {
        std::size_t bytes;
        WAVEFORMATEXTENSIBLE fmt;
        double seconds;
        std::int64_t hundredNanoseconds;
    };
    const Case cases[] = {{88200, pcmFormat(1, 16, 44100), 1.0, 10000000},
                          {3, pcmFormat(1, 16, 1), 1.5, 15000000},
                          {4, pcmFormat(2, 16, 16384), 1.0 / 16384, 610},
                          {4, pcmFormat(1, 16, 0), 0.0, 0}};
    for (const Case& c : cases) {
        StaticPCMBuffer b;
        b.set(bufferOf(std::string(c.bytes, '\0')), c.fmt);
        EXPECT_DOUBLE_EQ(b.durationSeconds(), c.seconds) << c.bytes;
        EXPECT_EQ(b.duration(), c.hundredNanoseconds) << c.bytes;
    }
}

TEST(StaticPCMBuffer, CopiesAreDeepAndMovesTakeTheStorage) {
    StaticPCMBuffer source = tenBlocks();
    source.fillDataBlocks(reinterpret_cast<const unsigned char*>("abcd"), 1);

    StaticPCMBuffer copy(source), assigned;
    copy.pcmArray().data()[0] = 0;
    EXPECT_EQ(source.pcmArray().data()[0], 'a');
    EXPECT_EQ(copy.writeMarker(), 4u);
    assigned = source;
    EXPECT_NE(assigned.pcmArray().data(), source.pcmArray().data());
    EXPECT_EQ(bytesOf(assigned.pcmArray()), bytesOf(source.pcmArray()));
    EXPECT_EQ(assigned.writeMarker(), 4u);

    const unsigned char* storage = assigned.pcmArray().data();
    StaticPCMBuffer& alias = assigned;
    assigned = alias;
    EXPECT_EQ(assigned.pcmArray().data(), storage);
    assigned.set(alias);
    EXPECT_EQ(assigned.pcmArray().data(), storage);
    EXPECT_EQ(assigned.writeMarker(), 0u);

    StaticPCMBuffer moved(std::move(assigned));
    EXPECT_EQ(moved.pcmArray().data(), storage);
    EXPECT_TRUE(assigned.pcmArray().empty());
    StaticPCMBuffer target;
    target = std::move(moved);
    EXPECT_EQ(target.pcmArray().data(), storage);
    EXPECT_TRUE(moved.pcmArray().empty());

    target.set(source);
    EXPECT_EQ(bytesOf(target.pcmArray()), bytesOf(source.pcmArray()));
    EXPECT_EQ(target.writeMarker(), 0u);
}

TEST(StaticPCMBuffer, TrackAndWordSourcesReplaceOnlyTheBaseFormat) {
    WAVEFORMATEXTENSIBLE fmt = pcmFormat(2, 16, 48000);
    fmt.dwChannelMask = 3;
    StaticPCMBuffer b(fmt);
    EXPECT_TRUE(b.pcmArray().empty());
    EXPECT_EQ(b.format().dwChannelMask, 3u);

    qel::Array<std::uint32_t> words;
    words.append(0x04030201u);
    words.append(0xA0B0C0D0u);
    WAVEFORMATEX mono = pcmFormat(1, 16, 8000).Format;
    b.set(words, mono);
    EXPECT_EQ(bytesOf(b.pcmArray()), std::string("\x01\x02\x03\x04\xD0\xC0\xB0\xA0", 8));
    EXPECT_EQ(fields(b.format().Format), fields(mono));
    EXPECT_EQ(b.format().dwChannelMask, 3u); // the extension is kept
    EXPECT_EQ(b.writeMarker(), 0u);
    b.set(qel::Array<std::uint32_t>(), mono);
    EXPECT_TRUE(b.pcmArray().empty());

    PCMTrack track;
    track.pcm = bufferOf(counting(8));
    track.format = pcmFormat(6, 16, 48000).Format;
    StaticPCMBuffer fromTrack(track);
    track.pcm.data()[0] = 0x55;
    EXPECT_EQ(bytesOf(fromTrack.pcmArray()), counting(8));
    EXPECT_EQ(fields(fromTrack.format().Format), fields(track.format));
    EXPECT_EQ(fromTrack.format().dwChannelMask, 0u);
    EXPECT_EQ(fromTrack.writeMarker(), 0u);
}

} // namespace
