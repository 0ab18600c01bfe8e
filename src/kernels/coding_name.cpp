// The names of bit-field codings.
#include "kernels/coding_name.h"

#include "runtime/str.h"

namespace mirn2::kernels {

Coding coding_named(std::string_view name) {
  const std::string word = mirn3::str::to_lower(name);
  if (word == "sgn") return Coding::sign_magnitude;
  if (word == "2c") return Coding::twos_complement;
  if (word == "bcd") return Coding::bcd;
  return Coding::unsigned_binary;
}

}  // namespace mirn2::kernels
