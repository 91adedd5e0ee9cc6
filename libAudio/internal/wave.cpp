// Reading WAV files through the platform's RIFF file I/O. The numbers before each failure
// message are fixed tags that callers and support scripts match on.
#include "foundation/qelLog.h"
#include "libAudio/WaveFile.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.wave")

// A data chunk can announce up to 4 GiB. Zeros for bytes that the file does not hold are
// refused beyond this many, like an allocation that fails: a corrupt or truncated header
// must not make us commit gigabytes for nothing. A cut-off recording has that much missing
// only after more than 90 minutes of 48 kHz 24-bit stereo.
constexpr std::uint64_t kMaxMissingDataBytes = std::uint64_t(1) << 30;

constexpr FOURCC idOf(const char (&text)[5]) {
    return mmioFOURCC(text[0], text[1], text[2], text[3]);
}

// Closes the file when a load ends, however it ends.
class MmioFile {
public:
    explicit MmioFile(const qel::String& path) {
        std::vector<WCHAR> name(path.length() + 1);
        std::copy_n(platform::wide(path.getUCS2Buffer()), name.size(), name.begin());
        m_handle = mmioOpenW(name.data(), nullptr, MMIO_READ);
    }
    ~MmioFile() {
        if (m_handle) {
            mmioClose(m_handle, 0);
        }
    }
    MmioFile(const MmioFile&) = delete;
    MmioFile& operator=(const MmioFile&) = delete;
    HMMIO handle() const { return m_handle; }

private:
    HMMIO m_handle = nullptr;
};

// Bytes from the current position to the end of the file; 0 when that cannot be told.
std::uint64_t bytesLeft(HMMIO file) {
    LONG here = mmioSeek(file, 0, SEEK_CUR);
    LONG end = mmioSeek(file, 0, SEEK_END);
    if (here < 0 || end < here || mmioSeek(file, here, SEEK_SET) != here) {
        return 0;
    }
    return std::uint64_t(end - here);
}

// Reads up to count bytes in pieces the platform's signed 32-bit count can carry.
std::uint64_t readAll(HMMIO file, unsigned char* out, std::uint64_t count) {
    std::uint64_t done = 0;
    while (done < count) {
        LONG piece = LONG(std::min<std::uint64_t>(count - done, 1u << 30));
        LONG got = mmioRead(file, reinterpret_cast<HPSTR>(out + done), piece);
        if (got <= 0) {
            break;
        }
        done += std::uint64_t(got);
    }
    return done;
}

// Replaces the bytes with count zeros; false, leaving no bytes, when they cannot be had.
bool allocateZeroed(qel::Buffer<unsigned char>& bytes, std::uint64_t count) {
    bytes.release();
    try {
        bytes.resize(count);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace

WaveFile::WaveFile() : m_extension(".wav"), m_format{} {}

WaveFile::WaveFile(const WaveFile& other) = default;
WaveFile& WaveFile::operator=(const WaveFile& other) = default;
WaveFile::~WaveFile() = default;

std::uint64_t WaveFile::numBlocks() const {
    std::uint64_t align = m_format.Format.nBlockAlign;
    return align ? m_pcm.size() / align : 0;
}

bool WaveFile::loadFile(const qel::String& path) {
    QEL_TRACE_SCOPE("WaveFile::loadWaveFile");
    m_pcm.release();
    m_format = WAVEFORMATEXTENSIBLE{};

    MmioFile file(path);
    HMMIO h = file.handle();
    if (!h) {
        QEL_LOG_AT(PRIORITY_ERROR, 62, "Fail to load wave file ", path);
        return false;
    }
    MMCKINFO riff{};
    if (MMRESULT r = mmioDescend(h, &riff, nullptr, 0)) {
        QEL_LOG_AT(PRIORITY_ERROR, 76, "File ", path, " does not have a valid multimedia header ",
                   (unsigned int)r);
        return false;
    }
    if (riff.ckid != idOf("RIFF") || riff.fccType != idOf("WAVE")) {
        QEL_LOG_AT(PRIORITY_ERROR, 85, "'File ", path, " does not have a valid wave header");
        return false;
    }
    MMCKINFO chunk{};
    chunk.ckid = idOf("fmt ");
    if (mmioDescend(h, &chunk, &riff, MMIO_FINDCHUNK) != 0) {
        QEL_LOG_AT(PRIORITY_ERROR, 97, "File ", path, " does not have a valid file handle");
        return false;
    }
    if (chunk.cksize < 16) {
        QEL_LOG_AT(PRIORITY_ERROR, 107, "File ", path, " has an invalid wave header size ",
                   (unsigned int)chunk.cksize);
        return false;
    }
    LONG wanted = LONG(std::min<DWORD>(chunk.cksize, sizeof m_format));
    LONG got = mmioRead(h, reinterpret_cast<HPSTR>(&m_format), wanted);
    if (got < wanted) {
        QEL_LOG_AT(PRIORITY_ERROR, 118, "Invalid wave format chunk, expected ",
                   (unsigned int)chunk.cksize, "bytes read ", (int)got, " bytes");
        return false;
    }
    const WAVEFORMATEX& f = m_format.Format;
    if (f.wFormatTag == WAVE_FORMAT_PCM) {
        if (f.cbSize != 0) {
            QEL_LOG_AT(PRIORITY_ERROR, 134, "Invalid wave format chunk, WAVE_FORMAT_PCM cbSize = ",
                       (unsigned int)f.cbSize, " expected 0");
            return false;
        }
    } else if (f.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        if (f.cbSize == 0) {
            QEL_LOG_AT(PRIORITY_ERROR, 142,
                       "Invalid extended wave format chunk, WAVE_FORMAT_EXTENSIBLE cbSize = 0, "
                       "expected at least 22 bytes");
            return false;
        }
    } else {
        QEL_LOG_AT(PRIORITY_ERROR, 126, "Unable to process wave file with format tag ",
                   (unsigned int)f.wFormatTag);
        return false;
    }
    if (mmioSeek(h, LONG(riff.dwDataOffset + 4), SEEK_SET) == -1) {
        QEL_LOG_AT(PRIORITY_ERROR, 150, "Cannot advance file handle to data offset");
        return false;
    }
    chunk.ckid = idOf("data");
    if (mmioDescend(h, &chunk, &riff, MMIO_FINDCHUNK) != 0) {
        QEL_LOG_AT(PRIORITY_ERROR, 163, "Cannot find wave data chunk");
        return false;
    }
    // The buffer has the announced size even when the file ends early: what arrived, then
    // zeros. When it cannot be had the load fails with nothing kept of the data.
    const std::uint64_t announced = chunk.cksize;
    const std::uint64_t missing = announced - std::min(announced, bytesLeft(h));
    if (missing > kMaxMissingDataBytes || !allocateZeroed(m_pcm, announced)) {
        QEL_ERROR("Cannot allocate ", announced, " bytes for the wave data chunk of ", path,
                  " (the file holds ", announced - missing, ")");
        return false;
    }
    return readAll(h, m_pcm.data(), announced) == announced;
}

bool WaveFile::nthAudioBlock(unsigned int n, qel::Array<unsigned char>& out) const {
    const std::uint64_t align = m_format.Format.nBlockAlign;
    const std::uint64_t count = std::uint64_t(m_format.Format.nChannels) * align;
    out.clear();
    out.grow(std::uint32_t(count), 0);
    const std::uint64_t from = align * n;
    if (from < m_pcm.size()) {
        std::uint64_t available = std::min(count, m_pcm.size() - from);
        std::copy_n(m_pcm.data() + from, available, out.begin());
    }
    return true;
}
