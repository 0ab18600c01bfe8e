// Makes blocks out of kinds and properties.
#pragma once

#include <memory>

#include "blocks/meta.h"

namespace plexo {

// Throws mirn3::exc::error_t "Argument '{}' cannot be empty" when a property that the kind needs is missing
// or empty. Properties that the kind does not use go to the log.
std::unique_ptr<MetaBlock> make_block(const Kind& kind, std::shared_ptr<PropertiesBlock> properties);

}  // namespace plexo
