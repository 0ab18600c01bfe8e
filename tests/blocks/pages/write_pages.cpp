// Writes what the library says about itself into the tree: the page of all kinds and the schema of model
// files.
#include <filesystem>
#include <fstream>

#include "blocks/plexo.h"

int main() {
  const std::filesystem::path docs = std::filesystem::path(KVALO_ROOT) / "docs";
  std::ofstream catalogue(docs / "models/catalogue.md", std::ios::binary);
  std::ofstream schema(docs / "formats/model.schema.json", std::ios::binary);
  catalogue << plexo::catalogue_page();
  schema << plexo::json::schema();
  return catalogue.flush() && schema.flush() ? 0 : 1;
}
