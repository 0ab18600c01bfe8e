// The exception that the runtime and the readers throw for failures that a user should see.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "kvalo/export.h"

namespace mirn3::exc {

class MIRN3_API error_t : public std::exception {
 public:
  explicit error_t(std::string_view message, int code = 0);
  ~error_t() override;

  const char* what() const noexcept override { return message_.c_str(); }
  int code() const noexcept { return code_; }

 private:
  std::string message_;
  int code_;
};

}  // namespace mirn3::exc
