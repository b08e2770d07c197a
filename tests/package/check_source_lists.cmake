# Checks the source lists of cmake/Sources.cmake against the tree: every .c
# and .cpp file in a folder that holds a listed file, and in every folder
# directly under tests/, is in a list (a file that no list names is built by
# nothing, and its tests never run), and every listed file exists.
# Run as: cmake -DSOURCE_DIR=<top of the tree> -P check_source_lists.cmake
cmake_minimum_required(VERSION 3.18)

set(PROJECT_SOURCE_DIR ${SOURCE_DIR})
include(${SOURCE_DIR}/cmake/Sources.cmake)

set(listed "")
foreach(name IN LISTS BRIMVEL_SOURCE_LISTS)
  list(APPEND listed ${${name}})
endforeach()

set(errors "")
set(folders "")
foreach(f IN LISTS listed)
  file(RELATIVE_PATH rel ${SOURCE_DIR} ${f})
  if(NOT EXISTS ${f})
    string(APPEND errors "  ${rel} is listed but not there\n")
  endif()
  get_filename_component(dir ${f} DIRECTORY)
  list(APPEND folders ${dir})
endforeach()
file(GLOB tests_folders LIST_DIRECTORIES true ${SOURCE_DIR}/tests/*)
foreach(dir IN LISTS tests_folders)
  if(IS_DIRECTORY ${dir})
    list(APPEND folders ${dir})
  endif()
endforeach()
list(REMOVE_DUPLICATES folders)

set(n 0)
foreach(dir IN LISTS folders)
  file(GLOB present ${dir}/*.c ${dir}/*.cpp)
  foreach(f IN LISTS present)
    math(EXPR n "${n} + 1")
    if(NOT f IN_LIST listed)
      file(RELATIVE_PATH rel ${SOURCE_DIR} ${f})
      string(APPEND errors "  ${rel} is in no list of cmake/Sources.cmake\n")
    endif()
  endforeach()
endforeach()

if(NOT errors STREQUAL "")
  message(NOTICE "cmake/Sources.cmake and the tree differ:\n${errors}")
  message(FATAL_ERROR "source list check failed")
endif()
list(LENGTH folders m)
message(STATUS "cmake/Sources.cmake lists the ${n} source files of its ${m} folders")
