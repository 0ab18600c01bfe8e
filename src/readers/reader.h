// The interface through which every source of samples is read.
//
// A reader knows bytes and sample buffers, but no registry and no chart; only the reader of Python plug-ins
// (src/containers) knows Python objects. scan() looks at the source once and lists its variables; load()
// fills the two vectors of one variable, any number of times.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "kvalo/shared_vector.h"

namespace mirn2::rd {

// A load request and its result.
struct rto_t {
  std::string_view tag_key;        // tag table for the variable's text values
  std::string_view name;           // full name of the variable; zero-terminated
  mirn3::shared_vector<double> x;  // time, to be filled; several variables may share one vector
  uint64_t spare = 0;              // not used by readers
  mirn3::shared_vector<double> y;  // values, to be filled; as many as x
  bool tolerate_unknown = false;   // an unknown name leaves x and y empty instead of throwing
};

// One entry of the variable tree.
struct VariableNode {
  std::string name;       // the name at this level
  std::string full_name;  // what load() is asked for: the levels joined by "."
  std::vector<VariableNode> children;
};

// Where a series' samples can come from; decides whether they may be dropped to make room.
enum class LoaderState : int {
  detached = 1,    // only in memory
  reloadable = 2,  // can be read from the source again
  live = 3,        // handed over by the source once
};

class Reader {
 public:
  explicit Reader(std::filesystem::path source);
  virtual ~Reader() = default;
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // Builds the variable tree. Called once, before any load, without the interpreter lock. Throws
  // mirn3::exc::error_t, std::bad_alloc, and what the standard library throws for paths and threads.
  virtual void scan() = 0;

  // Fills request.x and request.y, which arrive empty; they are undefined after an exception. Throws like
  // scan(); later loads work as if the failed one had not been. Called without the interpreter lock, by one
  // thread at a time (see Turn).
  virtual void load(rto_t& request) = 0;

  virtual LoaderState state() const noexcept { return LoaderState::reloadable; }

  // Drops what the reader keeps about the source only for speed. Any thread may call it, even during a
  // load(), which continues with its own share. Takes no lock that is held while memory is allocated.
  virtual void forget() noexcept {}

  // One thread's turn to scan or load. The caller of either holds one, and never waits for it with the
  // interpreter lock. Throws mirn3::exc::error_t if this thread has it already: a plug-in that asks for what
  // it is about to deliver would wait for itself.
  class Turn {
   public:
    explicit Turn(Reader& reader);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    Reader& reader_;
  };

  const std::filesystem::path& path() const noexcept { return path_; }
  const std::vector<VariableNode>& variables() const noexcept { return root_.children; }

 protected:
  // For load(): the name is not a variable, but may be a group. Leaves the request empty if it tolerates
  // unknown names; else throws mirn3::exc::error_t.
  void refuse_name(rto_t& request) const;

  std::filesystem::path path_;
  VariableNode root_;
  std::unordered_map<std::string, size_t> index_;  // variable name to position in the source

 private:
  std::mutex busy_;
  std::atomic<std::thread::id> busy_with_;  // the thread whose turn it is
};

// "prefix.name", or only the name if the prefix is empty.
std::string compose_name(std::string_view prefix, std::string_view name);

// Looks at the first 512 values: they must not decrease, and the last must be greater than the first.
// Otherwise all of x becomes 0, 1, 2, ... and two warnings are reported. An empty x stays.
void check_time_vector(const Reader& reader, mirn3::shared_vector<double>& x);

// Saves the tags that a load created. If the store cannot be written, the log says so and the load goes on:
// the numbers are valid for this session, and the next save writes them too.
void save_tags();

// Reports a warning: to the log at severity 2 and to the script's standard output.
void warn(std::string_view text);

}  // namespace mirn2::rd
