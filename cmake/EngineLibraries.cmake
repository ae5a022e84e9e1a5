# tamb_add_engine_library(TARGET NAME name SUMMARY text SOURCES file... LINK library... [REGISTRY folder]): the shared
# library libtamb_engine_NAME.so, which exports only its factory function, and the file that registers it,
# FOLDER/NAME.json, where FOLDER defaults to engines.d in the current binary folder.
set(TAMB_ENGINE_EXPORTS ${CMAKE_CURRENT_LIST_DIR}/tamb_engine.exports)
function(tamb_add_engine_library target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME;SUMMARY;REGISTRY" "SOURCES;LINK")
  if(NOT arg_REGISTRY)
    set(arg_REGISTRY ${CMAKE_CURRENT_BINARY_DIR}/engines.d)
  endif()
  add_library(${target} MODULE ${arg_SOURCES})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME tamb_engine_${arg_NAME}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS ${TAMB_ENGINE_EXPORTS})
  target_link_libraries(${target} PRIVATE ${arg_LINK})
  target_link_options(${target} PRIVATE -Wl,--version-script=${TAMB_ENGINE_EXPORTS})
  string(REGEX REPLACE "([\\\"])" "\\\\\\1" summary "${arg_SUMMARY}")
  # Relative, so that the tree can be moved.
  file(GENERATE OUTPUT ${arg_REGISTRY}/${arg_NAME}.json CONTENT
    "{\n  \"name\": \"${arg_NAME}\",\n  \"summary\": \"${summary}\",\n  \"library\": \"$<PATH:RELATIVE_PATH,$<TARGET_FILE:${target}>,${arg_REGISTRY}>\"\n}\n")
endfunction()
