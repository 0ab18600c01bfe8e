// What a script sees of the codes with which a model's checks end.
#pragma once

namespace mirn2 {

// Returns for code 0 and throws the exception of any other one.
void require_good(int code);

}  // namespace mirn2
