// Reads a script function's parameters and its argument format while compiling: what the interpreter's parser
// takes, the docstring that shows the parameters, and the values of those that are left out.
//
// Parameters are written as Python shows them, "(series, /, lower=-inf, op='le', seed=...)": names before "/"
// are positional only; "..." is the default of a parameter for whose absence no value can be given. Methods
// begin with "$self". Formats are those of PyArg_ParseTuple.
#pragma once

#include <array>
#include <limits>
#include <string_view>

#include "objects/frame.h"

namespace mirn2::signature {

struct Parameter {
  size_t name = 0;  // where its name begins
  size_t name_size = 0;
  size_t value = 0;  // where its default begins; 0 for a required parameter
  size_t value_size = 0;
};

constexpr size_t most_parameters = 40;

struct Parameters {
  Parameter items[most_parameters];
  size_t count = 0;
  size_t positional_only = 0;
  bool has_self = false;
  bool any_keywords = false;  // "**": whatever is given is ignored

  constexpr bool takes_keywords() const { return any_keywords || positional_only < count; }
};

// The place of the first of these characters from `at` on, npos without one. The library's own search
// compares pointers with null, which GCC does not take for constant under -fsanitize=null.
constexpr size_t find_any(std::string_view text, std::string_view characters, size_t at = 0) {
  for (; at < text.size(); ++at) {
    for (const char character : characters) {
      if (text[at] == character) return at;
    }
  }
  return std::string_view::npos;
}

consteval Parameters read_parameters(std::string_view text) {
  Parameters result;
  size_t at = 1;  // after the opening bracket
  while (text[at] != ')') {
    const size_t end = find_any(text, ",)", at);
    const std::string_view item = text.substr(at, end - at);
    if (item == "/") {
      result.positional_only = result.count;
    } else if (item == "$self") {
      result.has_self = true;
    } else if (item[0] == '*') {
      result.any_keywords = result.any_keywords || item.starts_with("**");
    } else {
      Parameter& parameter = result.items[result.count++];
      const size_t sign = find_any(item, "=");
      const bool required = sign == item.npos;
      parameter = {at, required ? item.size() : sign, required ? 0 : at + sign + 1,
                   required ? 0 : item.size() - sign - 1};
    }
    at = end;
    while (text[at] == ',' || text[at] == ' ') ++at;
  }
  return result;
}

struct Format {
  char letters[most_parameters] = {};
  size_t count = 0;
  size_t required = 0;
};

consteval Format read_format(std::string_view text) {
  Format format;
  const size_t bar = find_any(text, "|");
  for (const char letter : text) {
    if (letter != '|') format.letters[format.count++] = letter;
  }
  format.required = bar == text.npos ? format.count : bar;
  return format;
}

// What a format's letter makes the parser write, and what the function receives.
template <char letter>
struct Letter;
template <typename ParsedAs, typename PassedAs = ParsedAs>
struct Types {
  using Parsed = ParsedAs;
  using Passed = PassedAs;
};
// clang-format off
template <> struct Letter<'O'> : Types<PyObject*> {};
template <> struct Letter<'s'> : Types<const char*> {};
template <> struct Letter<'d'> : Types<double> {};
template <> struct Letter<'f'> : Types<float> {};
template <> struct Letter<'i'> : Types<int> {};
template <> struct Letter<'I'> : Types<unsigned int> {};
template <> struct Letter<'K'> : Types<unsigned long long> {};
template <> struct Letter<'b'> : Types<unsigned char> {};
template <> struct Letter<'p'> : Types<int, bool> {};
template <> struct Letter<'C'> : Types<int, Py_UCS4> {};
// clang-format on

// The number written in a default: digits with a point, a sign, inf. Exact for what a double shows in as many
// digits; longer ones do not compile.
constexpr double number(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const auto with_sign = [&](double value) { return negative ? -value : value; };
  if (text == "inf") return with_sign(std::numeric_limits<double>::infinity());
  constexpr double exact = 9007199254740992.0;  // 2^53
  double digits = 0;
  double scale = 1;
  bool after_point = false;
  for (const char c : text) {
    if (c == '.' && !after_point) {
      after_point = true;
    } else if (c >= '0' && c <= '9') {
      digits = digits * 10 + (c - '0');
      if (after_point) scale *= 10;
    } else {
      throw "not a number";
    }
  }
  if (digits >= exact || scale > 1e22) throw "too many digits";
  return with_sign(digits / scale);
}

// Everything that is known of a function before it is called.
template <Name name, Name parameters, Name format = "">
class Signature {
  // The parameters with a zero after each name and each text, so that both can be pointed at.
  static constexpr auto words = [] {
    Name text = parameters;
    constexpr Parameters read = read_parameters(parameters.text);
    for (size_t i = 0; i < read.count; ++i) {
      const Parameter& p = read.items[i];
      text.text[p.name + p.name_size] = '\0';
      if (p.value != 0 && text.text[p.value] == '\'') text.text[p.value + p.value_size - 1] = '\0';
    }
    return text;
  }();

 public:
  static constexpr Parameters all = read_parameters(parameters.text);
  static constexpr Format letters = read_format(format.text);

  // The format with the function's name, for the parser's own messages.
  static constexpr auto parser_format = [] {
    std::array<char, sizeof format.text + sizeof name.text> text{};
    char* end = std::copy_n(format.text, sizeof format.text - 1, text.begin());
    *end++ = ':';
    std::copy_n(name.text, sizeof name.text, end);
    return text;
  }();

  // The keyword list: empty names for what is positional only, null at the end.
  static constexpr auto keywords = [] {
    std::array<const char*, most_parameters + 1> list{};
    for (size_t i = 0; i < all.count; ++i) {
      list[i] = i < all.positional_only ? "" : words.text + all.items[i].name;
    }
    return list;
  }();

  // The value of parameter i when it is not given.
  template <size_t i>
  static constexpr auto default_value() {
    using Value = typename Letter<letters.letters[i]>::Parsed;
    constexpr Parameter p = all.items[i];
    constexpr std::string_view text(parameters.text + p.value, p.value_size);
    if constexpr (p.value == 0 || text == "...") {
      return Value{};
    } else if constexpr (std::is_same_v<Value, const char*>) {
      static_assert(text.front() == '\'' && text.back() == '\'', "a text stands between single quotes");
      return static_cast<const char*>(words.text + p.value + 1);
    } else if constexpr (text == "True" || text == "False") {
      return Value{text == "True"};
    } else {
      constexpr double value = number(text);
      return static_cast<Value>(value);
    }
  }

  template <size_t i>
  static constexpr bool has_default_value() {
    constexpr Parameter p = all.items[i];
    return p.value != 0 && std::string_view(parameters.text + p.value, p.value_size) != "...";
  }
};

constexpr bool is_infinity_at(std::string_view text, size_t i) {
  return i > 0 && text.substr(i).starts_with("inf") && (text[i - 1] == '=' || text[i - 1] == '-');
}

// A docstring with the signature in front, from where the interpreter takes `__text_signature__`. An infinite
// default is written as a literal that is one.
template <Name name, Name parameters, Name doc>
inline constexpr auto docstring = [] {
  constexpr std::string_view shown = parameters.text;
  constexpr std::string_view between = "\n--\n\n";
  constexpr std::string_view literal = "1e999";
  std::array<char, sizeof name.text + 2 * shown.size() + between.size() + sizeof doc.text> text{};
  char* end = std::copy_n(name.text, sizeof name.text - 1, text.begin());
  for (size_t i = 0; i < shown.size(); ++i) {
    if (is_infinity_at(shown, i)) {
      end = std::copy(literal.begin(), literal.end(), end);
      i += 2;
    } else {
      *end++ = shown[i];
    }
  }
  end = std::copy(between.begin(), between.end(), end);
  std::copy_n(doc.text, sizeof doc.text, end);
  return text;
}();

}  // namespace mirn2::signature
