# Checks that no object of the library allocates with operator new or
# throws: failures in the library are status codes, and its allocations go
# through the platform allocator, whose failures the callers check. Reads the
# undefined symbols of each object in the static archive:
#   operator new and new[] (every form)        _Znw*, _Zna*
#   throwing and catching                      __cxa_throw, __cxa_begin_catch
#   the standard library throwing for us       std::__throw_*
# Run as: cmake -DNM=<nm> -DARCHIVE=<static library> -P check_no_exceptions.cmake
cmake_minimum_required(VERSION 3.18)

execute_process(COMMAND ${NM} -A -u ${ARCHIVE} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${ARCHIVE}: ${err}")
endif()
string(REPLACE "\n" ";" lines "${out}")
set(offenders "")
set(report "")
foreach(line IN LISTS lines)
  # "<archive>:<member>:   U <symbol>"
  if(NOT line MATCHES "^.*:([^:]+\\.o[bj]*):[ \t]+U[ \t]+([^ \t]+)$")
    continue()
  endif()
  set(member ${CMAKE_MATCH_1})
  set(sym ${CMAKE_MATCH_2})
  if(sym MATCHES "^_Zn[wa]" OR sym MATCHES "^__cxa_(throw|begin_catch|allocate_exception)$"
     OR sym MATCHES "^_ZSt[0-9]+__throw_")
    list(APPEND offenders ${member})
    string(APPEND report "  ${member}: ${sym}\n")
  endif()
endforeach()
list(REMOVE_DUPLICATES offenders)
if(offenders)
  message(FATAL_ERROR "objects that allocate with operator new or throw:\n${report}")
endif()
message(STATUS "no object of ${ARCHIVE} uses operator new or throws")
