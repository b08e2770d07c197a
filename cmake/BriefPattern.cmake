# The BRIEF test pattern compiled into the descriptor kernel: the table and
# the unrolled kernel body are generated from data/brief_pattern_64.txt at
# build time (cmake/generate_brief_pattern.cmake).
set(_gen ${PROJECT_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${_gen})
set(BRIMVEL_BRIEF_OUTPUTS ${_gen}/brief_pattern_64_table.inc ${_gen}/brief_pattern_64_unrolled.inc)
add_custom_command(
  OUTPUT ${BRIMVEL_BRIEF_OUTPUTS}
  COMMAND ${CMAKE_COMMAND} -DIN=${PROJECT_SOURCE_DIR}/data/brief_pattern_64.txt
          -DOUT_TABLE=${_gen}/brief_pattern_64_table.inc -DOUT_UNROLLED=${_gen}/brief_pattern_64_unrolled.inc
          -P ${PROJECT_SOURCE_DIR}/cmake/generate_brief_pattern.cmake
  DEPENDS ${PROJECT_SOURCE_DIR}/data/brief_pattern_64.txt ${PROJECT_SOURCE_DIR}/cmake/generate_brief_pattern.cmake
  COMMENT "Generating the BRIEF pattern table and unrolled kernel"
  VERBATIM)
list(APPEND BRIMVEL_GENERATED_SOURCES ${BRIMVEL_BRIEF_OUTPUTS})
