# Checks that every C and C++ file of ours follows .clang-format: the files
# of the source lists (cmake/Sources.cmake) and the headers beside them.
# Run as: cmake -DCLANG_FORMAT=<clang-format> -DSOURCE_DIR=<top of the tree> -P check_format.cmake
cmake_minimum_required(VERSION 3.18)

set(PROJECT_SOURCE_DIR ${SOURCE_DIR})
include(${SOURCE_DIR}/cmake/Sources.cmake)

set(files "")
set(folders "")
foreach(name IN LISTS BRIMVEL_SOURCE_LISTS)
  foreach(f IN LISTS ${name})
    list(APPEND files ${f})
    get_filename_component(dir ${f} DIRECTORY)
    list(APPEND folders ${dir})
  endforeach()
endforeach()
list(REMOVE_DUPLICATES folders)
foreach(dir IN LISTS folders)
  file(GLOB headers ${dir}/*.h)
  list(APPEND files ${headers})
endforeach()
list(APPEND files ${SOURCE_DIR}/include/brimvel_tocra.h)
list(REMOVE_DUPLICATES files)
list(LENGTH files n)

execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${files} RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(NOTICE "${err}")
  message(FATAL_ERROR "files that .clang-format would change (clang-format -i <file> fixes them)")
endif()
message(STATUS "the ${n} C and C++ files follow .clang-format")
