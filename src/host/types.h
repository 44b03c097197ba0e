// The fixed-width names that the whole code base uses.
#pragma once
#include <cstddef>
#include <cstdint>

namespace MELDO_GLOBAL {

using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;
using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using f32 = float;
using f64 = double;

}  // namespace MELDO_GLOBAL
