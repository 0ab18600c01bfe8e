// libplexo: block diagrams that are built, checked, simulated, saved, and turned into C or Python.
//
// A model is a tree of blocks below a top block of kind "subsys" with id 1. Links live in a PropertiesModel,
// which the builder of the model may share with it. A signal is one double per sample; sample k is at
// t = ti + k * ts. Nothing here is safe from several threads at once, except that runs of different
// execution models are independent.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "blocks/api.h"
#include "blocks/properties.h"

namespace plexo {

constexpr uint64_t top_id = 1;
constexpr unsigned most_inputs = 8;

// Why a model cannot run; the names of these numbers are in docs/models/README.md.
enum Code : int {
  good = 0,
  algebraic_loop = 1,
  cast_not_linked = 2,
  from_without_goto = 3,
  goto_not_linked = 4,
  port_not_linked = 6,
  target_taken = 7,
  sizes_differ = 9,
  too_many_inputs = 10,
  bad_value = 11,
  expression_no_number = 12,
  expression_failed = 13,
  bad_period = 14,
  bad_times = 15,
};

struct Link {
  uint64_t from;
  uint64_t to;
  int16_t port_from;  // ports count from 1; anything below is never valid
  int16_t port_to;
  std::string name;  // of the signal; may be empty
};

// The links of a model.
struct PLEXO_API PropertiesModel {
  // Nothing is checked here: a link that joins nothing is found by meta_process.
  void insert_link(uint64_t from, uint64_t to, int16_t port_from, int16_t port_to, std::string_view name);

  std::vector<Link> links;
};

// Where an editor draws a block: x, y, width, height (0), and red, green, blue (-1: the editor's choice).
using Place = std::array<float, 7>;

struct Times {
  double ti = 0.0;   // first sample
  double tf = 10.0;  // end
  double ts = 0.01;  // sampling period
};

struct IMetaBlock {
  virtual ~IMetaBlock() = default;
  virtual void set_name(std::string_view name) = 0;
  // The name, or without one the kind and the id ("gain3").
  virtual std::string name() const = 0;
  virtual uint64_t id() const noexcept = 0;  // 0 until it is added to a model
  virtual uint64_t parent() const noexcept = 0;
  virtual std::string_view type() const noexcept = 0;
  virtual Place& place() noexcept = 0;
};

struct IExecModel;

struct IMetaModel {
  virtual ~IMetaModel() = default;

  // Adds a block below the subsys `parent` (0: the top block) and returns its id. The first one is the top
  // block. A subsys with a path gets that file's content. Throws mirn3::exc::error_t with "There's no block
  // with id '{}'", "Invalid properties value" or, with the json::Result as its code, "Error loading file
  // '{}'", and has added nothing then.
  virtual uint64_t add(std::unique_ptr<IMetaBlock> block, uint64_t parent) = 0;

  virtual IMetaBlock* block(uint64_t id) noexcept = 0;  // null if there is none
  virtual uint64_t count() const noexcept = 0;          // of blocks, the top block included
  virtual uint64_t links() const noexcept = 0;

  // A number of a block as get() shows it: "id", "parent", "inportCount", "outportCount", and each number
  // property that its kind uses. Nothing for other keys, and for a text that was not evaluated yet.
  virtual std::optional<double> number(uint64_t id, std::string_view key) const = 0;

  virtual Times times() const noexcept = 0;
  virtual void set_time(double ti, double tf, double ts) noexcept = 0;

  // What meta_process found last: evaluation levels, independent parts; 0 before and after every change. And
  // the block that failed, 0 if none did.
  virtual uint64_t tiers() const noexcept = 0;
  virtual uint64_t zones() const noexcept = 0;
  virtual uint64_t failed() const noexcept = 0;

  // Checks, flattens and sorts; flag 1 stops before sorting, so that no loop is looked for. Returns a Code;
  // the reason goes to the log at severity 2.
  virtual int meta_process(int flag) = 0;

  // Fills an execution model from what meta_process(0) has accepted; false, with a line in the log, if there
  // is nothing accepted or it does not fit into memory.
  virtual bool build(IExecModel& model) = 0;
};

// The signals of one system: for the top block its outports, for each system its named links, and the
// systems within that have something to show. Names are attribute names, all different.
struct Results {
  struct Signal {
    std::string name;
    std::string full_name;  // names of the systems from mainsys on, joined by "."
    uint32_t column;
  };
  std::string name;
  std::vector<Signal> signals;
  std::vector<Results> systems;
};

struct IExecModel {
  virtual ~IExecModel() = default;

  // Simulates from the initial values. 0 is success; 1: an assert failed; 2: interrupted, with the
  // interpreter's error set; 3: out of memory or too many samples; 4: nothing was built, or the results
  // cannot be placed. Takes the interpreter lock where it needs it, so the caller has let it go. With an
  // interpreter, the results are placed in __main__ as "mainsys", and the columns are given away to it; then
  // `placed` is called before the lock is let go, so that nobody else's results are found there.
  virtual int run(const std::function<void()>& placed = {}) = 0;

  // Without an interpreter, what the last run has logged stays here.
  virtual const Results& results() const noexcept = 0;
  virtual uint64_t samples() const noexcept = 0;
  virtual double time(uint64_t sample) const noexcept = 0;
  virtual const double* column(uint32_t index) const noexcept = 0;  // samples() numbers
};

PLEXO_API std::shared_ptr<IMetaModel> create_empty_meta_model();
PLEXO_API std::shared_ptr<IMetaModel> create_empty_meta_model(std::shared_ptr<PropertiesModel> links);
PLEXO_API std::shared_ptr<IExecModel> create_empty_exec_model();

namespace factory {

// A block of this kind; null for an unknown one. Throws mirn3::exc::error_t with "Block cannot have more than
// {} inports" or "Argument '{}' cannot be empty".
PLEXO_API std::unique_ptr<IMetaBlock> create(std::string_view type);
PLEXO_API std::unique_ptr<IMetaBlock> create(std::string_view type,
                                             std::shared_ptr<PropertiesBlock> properties);

}  // namespace factory

// The model file: docs/formats/model.md.
namespace json {

// Why a file was not loaded. The reason, with line and column, goes to the log at severity 2.
enum Result : int {
  loaded = 0,
  unreadable = 1,
  no_json = 2,      // or not UTF-8, too large, too deep
  no_model = 3,     // or of a later version
  no_kind = 4,      // an unknown type of block
  bad_content = 5,  // an unknown key, a value of a wrong type, something required that is missing
  bad_ids = 6,      // missing, repeated or reserved ids, parents that hold nothing, links to nowhere
};

// Adds the blocks and links of a file below the top block, which is made where it is missing, and takes over
// ti, tf and ts; or below a subsys, without them. On any failure the model is as it was.
PLEXO_API int load(IMetaModel* model, std::string_view path);
PLEXO_API int load(IMetaModel* model, std::string_view path, uint64_t parent);

// Writes the whole model as a file that load() reads back the same; false, with a line in the log, if the
// file cannot be written, or a block holds a series or number that no file can hold.
PLEXO_API bool save(const IMetaModel& model, std::string_view path);

// The JSON schema of the model file, made from the table of kinds.
PLEXO_API std::string schema();

}  // namespace json

// Write mainsys.h, mainsys.c and main.c, or mainsys.py, into the folder `path`, which is made if it is
// missing. 0 is success; 1: the model does not pass meta_process; 2: a file cannot be written, with no
// partial file left.
namespace coder_c {
PLEXO_API int generate_code(std::string_view path, IMetaModel* model);
}
namespace coder_py {
PLEXO_API int generate_code(std::string_view path, IMetaModel* model);
}

// The page that describes every kind, made from the table of kinds.
PLEXO_API std::string catalogue_page();

}  // namespace plexo
