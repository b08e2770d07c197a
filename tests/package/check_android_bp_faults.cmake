# The Android.bp check must fail on the drifts it exists for. Runs it on
# altered copies of Android.bp, of the build's source list and of the
# generated files, and expects each run to fail with its own reason.
# Run as: cmake -DCHECK=<check_android_bp.cmake> -DBPFMT=... -DANDROID_BP=...
#   -DMANIFEST=... -DSOURCE_DIR=... -DBINARY_DIR=... -DVERSION=...
#   -DGENERATED=... -DWORK=<scratch folder> -P check_android_bp_faults.cmake
cmake_minimum_required(VERSION 3.18)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/tree/android/generated)
file(READ ${ANDROID_BP} bp)
file(READ ${MANIFEST} manifest)
file(GLOB copies ${SOURCE_DIR}/android/generated/*)
file(COPY ${copies} DESTINATION ${WORK}/tree/android/generated)

set(failures "")
set(case_no 0)
# run_case(<name> <expected text> <Android.bp text> <source list text>)
function(run_case name expected bp_text manifest_text)
  math(EXPR n "${case_no} + 1")
  set(case_no ${n} PARENT_SCOPE)
  file(WRITE ${WORK}/case${n}.bp "${bp_text}")
  file(WRITE ${WORK}/case${n}.txt "${manifest_text}")
  execute_process(COMMAND ${CMAKE_COMMAND} -DBPFMT=${BPFMT} -DANDROID_BP=${WORK}/case${n}.bp
                          -DMANIFEST=${WORK}/case${n}.txt -DSOURCE_DIR=${WORK}/tree -DBINARY_DIR=${BINARY_DIR}
                          -DVERSION=${VERSION} "-DGENERATED=${GENERATED}" -P ${CHECK}
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  string(REGEX REPLACE "[ \t\n]+" " " flat "${out}")
  string(FIND "${flat}" "${expected}" at)
  if(rc EQUAL 0)
    set(failures "${failures}  ${name}: the check passed\n" PARENT_SCOPE)
  elseif(at EQUAL -1)
    set(failures "${failures}  ${name}: failed without '${expected}':\n${out}\n" PARENT_SCOPE)
  endif()
endfunction()

# The unaltered copies pass (otherwise every case below proves nothing).
execute_process(COMMAND ${CMAKE_COMMAND} -DBPFMT=${BPFMT} -DANDROID_BP=${ANDROID_BP} -DMANIFEST=${MANIFEST}
                        -DSOURCE_DIR=${WORK}/tree -DBINARY_DIR=${BINARY_DIR} -DVERSION=${VERSION}
                        "-DGENERATED=${GENERATED}" -P ${CHECK}
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the check fails on the unaltered copies:\n${out}")
endif()

# A file the CMake build gained (a new source, or an explicit list that
# names one more) and Android.bp did not.
run_case("source added to the build" "srcs lacks frame/added.cpp"
         "${bp}" "${manifest}frame/added.cpp\n")
# A file Android.bp still builds that the CMake build dropped.
string(REPLACE "frame/hooks.cpp\n" "" fewer "${manifest}")
run_case("source removed from the build" "srcs has frame/hooks.cpp" "${bp}" "${fewer}")
# The same drift the other way round, from the Android.bp side.
string(REPLACE "        \"warp/border_fill.cpp\",\n" "" bp_fewer "${bp}")
run_case("source missing in Android.bp" "srcs lacks warp/border_fill.cpp" "${bp_fewer}" "${manifest}")
string(REPLACE "        \"warp/border_fill.cpp\",\n" "        \"warp/*.cpp\",\n" bp_glob "${bp}")
run_case("pattern in srcs" "is a pattern" "${bp_glob}" "${manifest}")
string(REPLACE "    srcs: [\n" "    srcs: brimvel_srcs + [\n" bp_var "${bp}")
run_case("variable in srcs" "cannot read" "${bp_var}" "${manifest}")
string(REPLACE "    srcs: [\n" "    srcs: [\n        \"frame/hooks.cpp\",\n" bp_twice "${bp}")
run_case("source twice" "names a file twice" "${bp_twice}" "${manifest}")
string(REPLACE "    vendor: true,\n" "    vendor: true\n" bp_syntax "${bp}")
run_case("syntax error" "bpfmt cannot read" "${bp_syntax}" "${manifest}")
string(REPLACE "    vendor: true,\n" "    vendor:   true,\n" bp_layout "${bp}")
run_case("layout" "not in bpfmt's layout" "${bp_layout}" "${manifest}")
string(REPLACE "name: \"libbrimvel_tocra\"" "name: \"libbrimvel\"" bp_name "${bp}")
run_case("module renamed" "no module named libbrimvel_tocra" "${bp_name}" "${manifest}")
string(REPLACE "-DBRIMVEL_VERSION=" "-DBRIMVEL_VERSION_=" bp_version "${bp}")
run_case("version" "cflags lack -DBRIMVEL_VERSION" "${bp_version}" "${manifest}")
string(REPLACE "    local_include_dirs: [\"android/generated\"],\n" "" bp_inc "${bp}")
run_case("generated folder not included" "local_include_dirs lacks android/generated" "${bp_inc}" "${manifest}")

# A generated file that changed in the CMake build (here: its checked-in
# copy), one that is missing, and one the build does not generate.
file(GLOB incs ${WORK}/tree/android/generated/*.inc)
list(GET incs 0 inc)
get_filename_component(inc_name ${inc} NAME)
file(READ ${inc} inc_text)
file(APPEND ${inc} "// changed\n")
run_case("generated file changed" "android/generated/${inc_name} differs" "${bp}" "${manifest}")
file(REMOVE ${inc})
run_case("generated file missing" "android/generated/${inc_name} is missing" "${bp}" "${manifest}")
file(WRITE ${inc} "${inc_text}")
file(WRITE ${WORK}/tree/android/generated/stale.inc "")
run_case("stale generated file" "android/generated/stale.inc is not generated" "${bp}" "${manifest}")
file(REMOVE ${WORK}/tree/android/generated/stale.inc)

if(NOT failures STREQUAL "")
  message(FATAL_ERROR "the Android.bp check misses drifts:\n${failures}")
endif()
message(STATUS "the Android.bp check caught all ${case_no} drifts")
file(REMOVE_RECURSE ${WORK})
