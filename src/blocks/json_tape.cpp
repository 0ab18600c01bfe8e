// Reads a model file into a flat list of values that know their line and column.
#include "blocks/json_tape.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace plexo::json {

namespace {

// Goes through a text and lets others know how far it has come.
class Cursor {
 public:
  using difference_type = std::ptrdiff_t;
  using value_type = char;
  using pointer = const char*;
  using reference = const char&;
  using iterator_category = std::input_iterator_tag;

  Cursor(const char* at, const char** reached) : at_(at), reached_(reached) {}
  reference operator*() const { return *at_; }
  Cursor& operator++() {
    *reached_ = ++at_;
    return *this;
  }
  bool operator==(const Cursor& other) const { return at_ == other.at_; }
  bool operator!=(const Cursor& other) const { return at_ != other.at_; }

 private:
  const char* at_;
  const char** reached_;
};

}  // namespace

// Hears from the parser and writes nodes.
class Builder : public nlohmann::json::json_sax_t {
 public:
  Builder(Tape& tape, const char* const* reached, unsigned most_levels)
      : tape_(&tape), reached_(reached), most_levels_(most_levels) {}

  const std::string& why() const { return why_; }

  bool null() override { return add(Type::null); }
  bool boolean(bool) override { return add(Type::boolean); }
  bool number_integer(number_integer_t value) override { return number(static_cast<double>(value)); }
  bool number_unsigned(number_unsigned_t value) override { return number(static_cast<double>(value)); }
  bool number_float(number_float_t value, const string_t&) override { return number(value); }
  bool string(string_t& value) override { return text(Type::text, value); }
  bool key(string_t& value) override { return text(Type::key, value); }
  bool binary(binary_t&) override { return false; }
  bool start_object(size_t) override { return open(Type::object); }
  bool start_array(size_t) override { return open(Type::list); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool parse_error(size_t position, const std::string&, const nlohmann::json::exception& error) override {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: what": the number says nothing.
    std::string what = error.what();
    if (const size_t end = what.find("] "); end != std::string::npos) what.erase(0, end + 2);
    if (what.find("line ") == std::string::npos && position > 0) {
      what += " at " + tape_->place(static_cast<uint32_t>(position - 1));
    }
    why_ = what;
    return false;
  }

 private:
  // Where the token begins that the parser has just read: after the one before and what parts them.
  uint32_t offset() {
    const size_t end = static_cast<size_t>(*reached_ - tape_->source_.data());
    const size_t begin = std::min(tape_->source_.find_first_not_of(" \t\r\n,:]}", before_), end);
    before_ = end;
    return static_cast<uint32_t>(begin);
  }

  bool add(Type type) {
    tape_->nodes_.push_back({.type = type, .offset = offset(), .extent = 1, .text = 0});
    return true;
  }
  bool number(double value) {
    add(Type::number);
    tape_->nodes_.back().number = value;
    return true;
  }
  bool text(Type type, const std::string& value) {
    add(type);
    tape_->nodes_.back().extent = static_cast<uint32_t>(value.size());
    tape_->nodes_.back().text = tape_->texts_.size();
    tape_->texts_ += value;
    return true;
  }
  bool open(Type type) {
    if (open_.size() == most_levels_) {
      why_ =
          fmt::format("{}: more than {} levels of lists and objects", tape_->place(offset()), most_levels_);
      return false;
    }
    open_.push_back(static_cast<uint32_t>(tape_->nodes_.size()));
    return add(type);
  }
  bool close() {
    tape_->nodes_[open_.back()].extent = static_cast<uint32_t>(tape_->nodes_.size()) - open_.back();
    open_.pop_back();
    return true;
  }

  Tape* tape_;
  const char* const* reached_;
  unsigned most_levels_;
  size_t before_ = 0;  // end of the last token
  std::vector<uint32_t> open_;
  std::string why_;
};

bool Tape::read(std::string_view text, unsigned most_levels, std::string& why) {
  source_ = text;
  const char* reached = text.data();
  Builder builder(*this, &reached, most_levels);
  const Cursor begin(text.data(), &reached), end(text.data() + text.size(), &reached);
  const bool good = nlohmann::json::sax_parse(begin, end, &builder);
  if (!good) why = builder.why();
  return good;
}

std::string Tape::place(uint32_t offset) const {
  const std::string_view before = source_.substr(0, offset);
  const auto line = std::ranges::count(before, '\n') + 1;
  const size_t line_begin = before.rfind('\n') + 1;  // npos + 1 is 0
  return fmt::format("line {}, column {}", line, offset - line_begin + 1);
}

}  // namespace plexo::json
