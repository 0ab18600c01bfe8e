# The live page of kvalo_view: its modules made small, as scripts/page_assets.py says. Where npm or what it fetches
# cannot be had, the view is built without its page.
file(GLOB page_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/python/kvalo_view/page/*)
set(page_folder ${CMAKE_BINARY_DIR}/page)
add_custom_command(
  OUTPUT ${page_folder}/built
  COMMAND ${Python_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/page_assets.py --optional
          --out ${page_folder}/assets --packages ${page_folder}/packages
  COMMAND ${CMAKE_COMMAND} -E touch ${page_folder}/built
  DEPENDS ${page_sources} ${PROJECT_SOURCE_DIR}/scripts/page_assets.py
  COMMENT "Building the live page"
  VERBATIM)
add_custom_target(kvalo_page ALL DEPENDS ${page_folder}/built)
install(DIRECTORY ${page_folder}/assets/ DESTINATION kvalo_view/page COMPONENT python OPTIONAL)
