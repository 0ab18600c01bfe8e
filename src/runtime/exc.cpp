// The exception of the runtime; its table lives in this library, so that it is caught across libraries.
#include "runtime/exc.h"

namespace mirn3::exc {

error_t::error_t(std::string_view message, int code) : message_(message), code_(code) {}

error_t::~error_t() = default;

}  // namespace mirn3::exc
