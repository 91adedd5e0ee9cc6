// RIFF chunk navigation over a real file, with the semantics of the Windows mmio calls:
// descending into RIFF or LIST leaves the position after the form type, and a search for
// a chunk stays inside the parent chunk and skips the pad byte of odd-sized chunks.
#include "platform/standin/mmio.h"
#include "platform/sim/utf16.h"

#include <cstdint>
#include <cstdio>
#include <optional>

struct MMIOHANDLE {
    std::FILE* file;
};

namespace {

struct ChunkHeader {
    FOURCC id;
    DWORD size;
};

DWORD readLittleEndian32(const unsigned char* bytes) {
    return DWORD(bytes[0]) | (DWORD(bytes[1]) << 8) | (DWORD(bytes[2]) << 16) |
           (DWORD(bytes[3]) << 24);
}

std::optional<DWORD> readWord(std::FILE* file) {
    unsigned char bytes[4];
    if (std::fread(bytes, 1, 4, file) != 4) {
        return std::nullopt;
    }
    return readLittleEndian32(bytes);
}

bool isContainer(FOURCC id) {
    return id == FOURCC_RIFF || id == FOURCC_LIST;
}

bool matches(const MMCKINFO& wanted, FOURCC id, FOURCC type, UINT flags) {
    if (flags & MMIO_FINDCHUNK) {
        return id == wanted.ckid;
    }
    if (flags & MMIO_FINDRIFF) {
        return id == FOURCC_RIFF && type == wanted.fccType;
    }
    if (flags & MMIO_FINDLIST) {
        return id == FOURCC_LIST && type == wanted.fccType;
    }
    return true;
}

// Reads the chunk header at the current position and, for containers, the form type.
// Leaves the position after what it read.
std::optional<MMCKINFO> readChunk(std::FILE* file, long long limit) {
    long long start = std::ftell(file);
    if (start < 0 || start + 8 > limit) {
        return std::nullopt;
    }
    auto id = readWord(file);
    auto size = id ? readWord(file) : std::nullopt;
    if (!size) {
        return std::nullopt;
    }
    MMCKINFO chunk{*id, *size, 0, DWORD(start + 8), 0};
    if (isContainer(chunk.ckid)) {
        auto type = readWord(file);
        if (!type) {
            return std::nullopt;
        }
        chunk.fccType = *type;
    }
    return chunk;
}

} // namespace

extern "C" {

HMMIO mmioOpenW(LPWSTR fileName, LPMMIOINFO, DWORD openFlags) {
    if (!fileName || (openFlags & (MMIO_WRITE | MMIO_READWRITE))) {
        return nullptr; // the simulated platform reads files only
    }
    std::FILE* file = std::fopen(sim::toUtf8(fileName).c_str(), "rb");
    return file ? new MMIOHANDLE{file} : nullptr;
}

MMRESULT mmioClose(HMMIO handle, UINT) {
    if (!handle) {
        return MMSYSERR_INVALHANDLE;
    }
    std::fclose(handle->file);
    delete handle;
    return MMSYSERR_NOERROR;
}

LONG mmioRead(HMMIO handle, HPSTR buffer, LONG count) {
    if (!handle || count < 0 || (count > 0 && !buffer)) {
        return -1;
    }
    return LONG(std::fread(buffer, 1, std::size_t(count), handle->file));
}

LONG mmioSeek(HMMIO handle, LONG offset, int origin) {
    if (!handle || std::fseek(handle->file, offset, origin) != 0) {
        return -1;
    }
    return LONG(std::ftell(handle->file));
}

MMRESULT mmioDescend(HMMIO handle, LPMMCKINFO chunk, const MMCKINFO* parent, UINT flags) {
    if (!handle || !chunk) {
        return MMSYSERR_INVALPARAM;
    }
    long long limit = parent ? (long long)parent->dwDataOffset + parent->cksize : INT64_MAX;
    for (;;) {
        auto found = readChunk(handle->file, limit);
        if (!found) {
            return MMIOERR_CHUNKNOTFOUND;
        }
        if (matches(*chunk, found->ckid, found->fccType, flags)) {
            *chunk = *found;
            return MMSYSERR_NOERROR;
        }
        long long next = (long long)found->dwDataOffset + found->cksize + (found->cksize & 1);
        if (next > INT32_MAX || std::fseek(handle->file, long(next), SEEK_SET) != 0) {
            return MMIOERR_CHUNKNOTFOUND;
        }
    }
}

MMRESULT mmioAscend(HMMIO handle, LPMMCKINFO chunk, UINT) {
    if (!handle || !chunk) {
        return MMSYSERR_INVALPARAM;
    }
    long long next = (long long)chunk->dwDataOffset + chunk->cksize + (chunk->cksize & 1);
    if (next > INT32_MAX || std::fseek(handle->file, long(next), SEEK_SET) != 0) {
        return MMIOERR_CANNOTSEEK;
    }
    return MMSYSERR_NOERROR;
}
}
