// Parameters that Windows callers declare as unsigned long (32-bit there) must be exactly
// that type on Windows, or their calls do not link; elsewhere they are 32-bit as well.
// Compiled with the header check and, for Windows, by the cross compiler.
#include "foundation/qelSystem.h"
#include "libAudio/StaticPCMBuffer.h"

#include <cstdint>
#include <cstdio>
#include <type_traits>

namespace {

#ifdef _WIN32
typedef unsigned long Word32;
#else
typedef std::uint32_t Word32;
#endif
static_assert(sizeof(Word32) == 4, "a word of these signatures is 32 bits");

static_assert(std::is_same_v<decltype(&qel::System::fopen),
                             std::FILE* (*)(const qel::String&, const qel::String&, Word32*)>,
              "qel::System::fopen reports its error through a 32-bit unsigned long");

// Does not compile unless the word-array overload takes exactly qel::Array<Word32>.
[[maybe_unused]] constexpr void (libAudio::StaticPCMBuffer::*setWords)(
    const qel::Array<Word32>&, const WAVEFORMATEX&) = &libAudio::StaticPCMBuffer::set;

} // namespace
