#pragma once

#include <cstdint>

namespace qel {

typedef std::uint32_t Uint32;
typedef std::uint64_t Uint64;
typedef std::int64_t Int64;

} // namespace qel
