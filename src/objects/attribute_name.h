// From a variable's name to the name of the attribute under which scripts reach it.
#pragma once

#include <string>
#include <string_view>

namespace mirn2 {

// Carriage returns, line feeds and double quotes go; a first character that is a digit gets "_" in
// front, one that is neither "_" nor an ASCII letter becomes "_"; so does every later byte that is
// neither "_" nor an ASCII letter or digit. An empty name gives "_".
std::string attribute_name(std::string_view name);

}  // namespace mirn2
