// Any bytes as a script, under its limits.
#include <cmath>
#include <cstring>
#include <string>

#include "host/script_runner.h"

using namespace MELDO_GLOBAL;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  static const host::ScriptFamily family{{"intensity", "cell_value", "cell_index", "physical_pos"}};
  const std::string source(reinterpret_cast<const char*>(data), size);
  host::ScriptRunner runner(family);
  if (!runner.Compile(source)) {
    if (!runner.Error()) __builtin_trap();
    return 0;
  }
  runner.SetOp({"node", 0.5, 0.04, 12});
  const double intensity[] = {1, 1, 1}, values[] = {0, 0.5, -1e300};
  const i32 indices[] = {0, 1, 2147483647};
  const Vec3d positions[] = {{0, 0, 0}, {1, -2, 3}, {1e9, 1e-9, 0}};
  const host::ScriptColumn told[] = {std::span<const double>(intensity),
                                     std::span<const double>(values), std::span<const i32>(indices),
                                     std::span<const Vec3d>(positions)};
  double numbers[3][3];
  Vec3d vectors[3];
  // A second state, and a second run in the first one, compute the same.
  const bool first = runner.Run(0, told, std::span<double>(numbers[0]));
  const bool other = runner.Run(1, told, std::span<double>(numbers[1]));
  const bool again = runner.Run(0, told, std::span<double>(numbers[2]));
  if (first != other || first != again) __builtin_trap();
  for (const int run : {1, 2}) {
    if (!first) break;
    for (int i = 0; i < 3; ++i)
      if (!std::isfinite(numbers[0][i]) ||
          std::memcmp(&numbers[0][i], &numbers[run][i], sizeof(double)) != 0)
        __builtin_trap();
  }
  if (!first && !runner.Error()) __builtin_trap();
  runner.Run(2, told, std::span<Vec3d>(vectors));
  return 0;
}
