// The model as it is built: a tree of blocks with what they were given, and the time it runs over.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "blocks/flat.h"
#include "blocks/kind.h"
#include "blocks/plexo.h"

namespace plexo {

class MetaBlock final : public IMetaBlock {
 public:
  MetaBlock(const Kind& kind, std::shared_ptr<PropertiesBlock> given)
      : kind_(&kind), given_(std::move(given)) {
    place_ = {0, 0, 0, 0, -1, -1, -1};
  }

  void set_name(std::string_view name) override { given_->name = name; }
  std::string name() const override;
  uint64_t id() const noexcept override { return id_; }
  uint64_t parent() const noexcept override { return parent_; }
  std::string_view type() const noexcept override { return kind_->type; }
  Place& place() noexcept override { return place_; }

  const Kind& kind() const noexcept { return *kind_; }
  const Place& where() const noexcept { return place_; }
  PropertiesBlock& given() noexcept { return *given_; }
  const PropertiesBlock& given() const noexcept { return *given_; }
  unsigned depth() const noexcept { return depth_; }  // systems around it
  bool is_system() const noexcept { return kind_->type == "subsys"; }
  // What the properties are once their texts are evaluated; without texts, what was given.
  const PropertiesBlock& evaluated() const noexcept { return evaluated_ ? *evaluated_ : *given_; }
  void set_evaluated(std::unique_ptr<PropertiesBlock> properties) { evaluated_ = std::move(properties); }

 private:
  friend class MetaModel;

  const Kind* kind_;
  std::shared_ptr<PropertiesBlock> given_;
  std::unique_ptr<PropertiesBlock> evaluated_;
  uint64_t id_ = 0;
  uint64_t parent_ = 0;
  unsigned depth_ = 0;
  Place place_;
};

class MetaModel final : public IMetaModel {
 public:
  explicit MetaModel(std::shared_ptr<PropertiesModel> links) : links_(std::move(links)) {}

  uint64_t add(std::unique_ptr<IMetaBlock> block, uint64_t parent) override;
  IMetaBlock* block(uint64_t id) noexcept override { return find(id); }
  uint64_t count() const noexcept override { return blocks_.size(); }
  uint64_t links() const noexcept override { return links_->links.size(); }
  std::optional<double> number(uint64_t id, std::string_view key) const override;
  Times times() const noexcept override { return times_; }
  void set_time(double ti, double tf, double ts) noexcept override { times_ = {ti, tf, ts}; }
  uint64_t tiers() const noexcept override { return is_current() ? tiers_ : 0; }
  uint64_t zones() const noexcept override { return is_current() ? zones_ : 0; }
  uint64_t failed() const noexcept override { return failed_; }
  int meta_process(int flag) override;
  bool build(IExecModel& model) override;

  static constexpr unsigned deepest = 64;

  // Adds a block without any check, under an id above all that are there. Its parent may still be missing.
  void append(uint64_t id, std::unique_ptr<MetaBlock> block, uint64_t parent, unsigned depth);

  MetaBlock* find(uint64_t id) const noexcept;
  uint64_t largest_id() const noexcept { return blocks_.empty() ? 0 : blocks_.back()->id(); }
  const std::vector<std::unique_ptr<MetaBlock>>& blocks() const noexcept { return blocks_; }
  PropertiesModel& wires() noexcept { return *links_; }
  const PropertiesModel& wires() const noexcept { return *links_; }

  // The model as it was: what came later goes away again.
  struct Mark {
    size_t blocks;
    size_t links;
    Times times;
  };
  Mark mark() const noexcept { return {blocks_.size(), links_->links.size(), times_}; }
  void roll_back(const Mark& mark);

  // What meta_process(0) has accepted; null before it, and after a change.
  const FlatModel* flat() const noexcept { return is_current() ? flat_.get() : nullptr; }

 private:
  // Which port numbers the ports of one system have.
  struct Used {
    std::vector<bool> taken;
    size_t lowest_free = 1;
  };

  bool is_current() const noexcept { return processed_blocks_ == count() && processed_links_ == links(); }
  void number_port(MetaBlock& block);

  std::shared_ptr<PropertiesModel> links_;
  std::vector<std::unique_ptr<MetaBlock>> blocks_;  // by ascending id
  std::map<std::pair<uint64_t, bool>, Used> used_ports_;
  Times times_;

  std::shared_ptr<const FlatModel> flat_;
  uint64_t processed_blocks_ = ~uint64_t{0};
  uint64_t processed_links_ = 0;
  uint64_t tiers_ = 0;
  uint64_t zones_ = 0;
  uint64_t failed_ = 0;
};

}  // namespace plexo
