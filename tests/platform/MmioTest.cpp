#include "platform/win32.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

// One chunk: id, little-endian size, body and the pad byte of an odd-sized body.
std::string chunk(const char* id, const std::string& body) {
    std::string out(id, 4);
    for (int i = 0; i < 4; ++i) {
        out += char((body.size() >> (8 * i)) & 0xFF);
    }
    return out + body + (body.size() % 2 ? std::string(1, '\0') : std::string());
}

const FOURCC kData = mmioFOURCC('d', 'a', 't', 'a');
const std::string kFormat(16, '\x01');

class Mmio : public ::testing::Test {
protected:
    void TearDown() override {
        close();
        std::filesystem::remove(m_path);
    }
    HMMIO open(const std::string& bytes) {
        close();
        std::ofstream(m_path, std::ios::binary) << bytes;
        std::string name = m_path.string();
        std::u16string wide(name.begin(), name.end()); // the scratch path is ASCII
        return m_handle = mmioOpenW(wide.data(), nullptr, MMIO_READ);
    }
    void close() {
        if (m_handle) {
            mmioClose(m_handle, 0);
        }
        m_handle = nullptr;
    }
    LONG position() { return mmioSeek(m_handle, 0, SEEK_CUR); }
    MMRESULT descend(MMCKINFO& chunk, FOURCC id, const MMCKINFO* parent, UINT flags) {
        (flags == MMIO_FINDCHUNK ? chunk.ckid : chunk.fccType) = id;
        return mmioDescend(m_handle, &chunk, parent, flags);
    }

    std::filesystem::path m_path = std::filesystem::temp_directory_path() /
                                   ("libaudio-mmio-" + std::to_string(getpid()) + ".wav");
    HMMIO m_handle = nullptr;
};

TEST_F(Mmio, FindsDataPastOddSizedChunks) {
    std::string body =
        "WAVE" + chunk("fmt ", kFormat) + chunk("odd ", "abc") + chunk("data", "PCMDATA!");
    ASSERT_NE(open(chunk("RIFF", body)), nullptr);
    MMCKINFO riff{}, data{}, odd{};
    ASSERT_EQ(descend(riff, mmioFOURCC('W', 'A', 'V', 'E'), nullptr, MMIO_FINDRIFF), 0u);
    EXPECT_EQ(riff.ckid, FOURCC_RIFF);
    EXPECT_EQ(riff.cksize, body.size());
    EXPECT_EQ(riff.dwDataOffset, 8u);
    EXPECT_EQ(position(), 12); // after the form type
    ASSERT_EQ(descend(data, kData, &riff, MMIO_FINDCHUNK), 0u);
    EXPECT_EQ(data.cksize, 8u);
    EXPECT_EQ(data.dwDataOffset, 12u + 24u + 12u + 8u);
    char samples[9] = {};
    EXPECT_EQ(mmioRead(m_handle, samples, 8), 8);
    EXPECT_STREQ(samples, "PCMDATA!");
    EXPECT_EQ(mmioRead(m_handle, samples, 8), 0); // end of file

    // Without a flag descend takes the next chunk; ascend then skips the pad byte.
    mmioSeek(m_handle, 36, SEEK_SET);
    ASSERT_EQ(mmioDescend(m_handle, &odd, &riff, 0), 0u);
    EXPECT_EQ(odd.ckid, mmioFOURCC('o', 'd', 'd', ' '));
    EXPECT_EQ(odd.cksize, 3u);
    ASSERT_EQ(mmioAscend(m_handle, &odd, 0), 0u);
    EXPECT_EQ(position(), LONG(data.dwDataOffset - 8));
}

TEST_F(Mmio, SearchStaysInsideTheParent) {
    // The RIFF size covers the format chunk only; a data chunk follows outside it.
    ASSERT_NE(open(chunk("RIFF", "WAVE" + chunk("fmt ", kFormat)) + chunk("data", "outside!")),
              nullptr);
    MMCKINFO riff{}, data{};
    ASSERT_EQ(descend(riff, mmioFOURCC('W', 'A', 'V', 'E'), nullptr, MMIO_FINDRIFF), 0u);
    EXPECT_EQ(descend(data, kData, &riff, MMIO_FINDCHUNK), MMRESULT(MMIOERR_CHUNKNOTFOUND));
    mmioSeek(m_handle, 12, SEEK_SET);
    ASSERT_EQ(descend(data, kData, nullptr, MMIO_FINDCHUNK), 0u);
    EXPECT_EQ(data.dwDataOffset, riff.dwDataOffset + riff.cksize + 8);
}

TEST_F(Mmio, ShortFilesHaveNoChunks) {
    for (const std::string& bytes :
         {std::string("RIFF\x10\x00", 6), std::string("RIFF\x04\x00\x00\x00WA", 10),
          chunk("RIFF", "WAVE") + "da"}) {
        ASSERT_NE(open(bytes), nullptr);
        MMCKINFO riff{}, data{};
        bool found = descend(riff, mmioFOURCC('W', 'A', 'V', 'E'), nullptr, MMIO_FINDRIFF) == 0 &&
                     descend(data, kData, nullptr, MMIO_FINDCHUNK) == 0;
        EXPECT_FALSE(found) << bytes.size() << " bytes";
    }
    std::u16string missing = u"/nonexistent/libaudio.wav";
    EXPECT_EQ(mmioOpenW(missing.data(), nullptr, MMIO_READ), nullptr);
}

} // namespace
