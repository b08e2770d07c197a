# What every target is built from: one list per source folder, one file per
# line, in name order, paths from the top of the tree.
#
# A new source file goes into its folder's list here; a new library source
# into srcs in Android.bp as well (the android_bp test compares the two). The
# source_lists test fails on a .c or .cpp file in one of these folders that
# no list names, and on a listed file that is not there.

# brimvel_sources(<list> <file>...): <list> becomes the files as absolute
# paths (they are used from the folders' own CMakeLists.txt as well), and its
# name joins BRIMVEL_SOURCE_LISTS, which the source_lists test reads.
macro(brimvel_sources name)
  set(${name} ${ARGN})
  list(TRANSFORM ${name} PREPEND ${PROJECT_SOURCE_DIR}/)
  list(APPEND BRIMVEL_SOURCE_LISTS ${name})
endmacro()
set(BRIMVEL_SOURCE_LISTS "")

# ---------------------------------------------------------------------------
# The library: libbrimvel_tocra.so and the static archive that the tests link.
# ---------------------------------------------------------------------------
brimvel_sources(BRIMVEL_FRAME_SOURCES
  frame/alloc.cpp
  frame/cacheflush.cpp
  frame/entry_guard.cpp
  frame/hooks.cpp
  frame/log.cpp
  frame/memory.cpp
  frame/thread_create.cpp
  frame/thread_helpers.cpp
  frame/worker_pool.cpp
)
brimvel_sources(BRIMVEL_FILTER_SOURCES
  filter/bands.cpp
  filter/box_filter.cpp
  filter/box_sum_h.cpp
  filter/box_sum_h_neon.cpp
  filter/box_sum_v.cpp
  filter/box_sum_v_neon.cpp
  filter/cum_hist.cpp
  filter/cum_hist_neon.cpp
  filter/downscale_x4.cpp
  filter/downscale_x4_neon.cpp
  filter/face_map.cpp
  filter/frame_balance.cpp
  filter/integral_image.cpp
  filter/integral_image_neon.cpp
  filter/upscale_error.cpp
  filter/upscale_error_neon.cpp
  filter/upscale_x4.cpp
  filter/upscale_x4_neon.cpp
  filter/yuv2rgb_hist.cpp
  filter/yuv2rgb_hist_neon.cpp
  filter/yuv_hist_api.cpp
)
brimvel_sources(BRIMVEL_REGISTRATION_SOURCES
  registration/brief_descriptor.cpp
  registration/brief_strips.cpp
  registration/brief_strips_neon.cpp
  registration/dlt_normal_matrix.cpp
  registration/dlt_normal_matrix_neon.cpp
  registration/homography_dlt.cpp
  registration/img_registration.cpp
  registration/jacobi_eigen.cpp
  registration/lm_minimize.cpp
  registration/motion_estimation.cpp
  registration/ransac.cpp
  registration/registration_api.cpp
)
brimvel_sources(BRIMVEL_WARP_SOURCES
  warp/border_fill.cpp
  warp/border_fill_neon.cpp
  warp/border_mirror.cpp
  warp/perspective_warp.cpp
  warp/perspective_warp_neon.cpp
  warp/warp_checks.cpp
)
brimvel_sources(BRIMVEL_CONFIG_SOURCES
  config/parse_xml_api.cpp
  config/xml_config.cpp
  config/xml_encoding.cpp
  config/xml_entities.cpp
  config/xml_node.cpp
  config/xml_parser.cpp
)
brimvel_sources(BRIMVEL_BOUNDSCHECK_SOURCES
  boundscheck/mem_s.cpp
  boundscheck/scan_buffer.cpp
  boundscheck/scan_directive.cpp
  boundscheck/scan_input.cpp
  boundscheck/sscanf_s.cpp
  boundscheck/str_s.cpp
)
set(BRIMVEL_SOURCES
    ${BRIMVEL_FRAME_SOURCES}
    ${BRIMVEL_FILTER_SOURCES}
    ${BRIMVEL_REGISTRATION_SOURCES}
    ${BRIMVEL_WARP_SOURCES}
    ${BRIMVEL_CONFIG_SOURCES}
    ${BRIMVEL_BOUNDSCHECK_SOURCES})

# The stand-in Android log library of the Linux cross builds (not part of
# the library; cmake/Platform.cmake).
brimvel_sources(BRIMVEL_LOG_STANDIN_SOURCES
  frame/log_standin.c
)

# ---------------------------------------------------------------------------
# Tests (tests/CMakeLists.txt): the support objects, then one binary per
# folder, test_<folder> from BRIMVEL_TEST_<FOLDER>_SOURCES for each folder
# in BRIMVEL_TEST_SUITES.
# ---------------------------------------------------------------------------
brimvel_sources(BRIMVEL_TEST_SUPPORT_SOURCES
  tests/support/test_support.cpp
)
set(BRIMVEL_TEST_SUITES frame filter registration warp config boundscheck api faults)
brimvel_sources(BRIMVEL_TEST_FRAME_SOURCES
  tests/frame/frame_test.cpp
  tests/frame/numeric_test.cpp
  tests/frame/thread_helpers_test.cpp
  tests/frame/worker_pool_test.cpp
)
brimvel_sources(BRIMVEL_TEST_FILTER_SOURCES
  tests/filter/box_filter_api_test.cpp
  tests/filter/box_filter_test.cpp
  tests/filter/frame_balance_test.cpp
  tests/filter/integral_image_test.cpp
  tests/filter/scale_x4_test.cpp
  tests/filter/yuv2rgb_hist_test.cpp
)
brimvel_sources(BRIMVEL_TEST_REGISTRATION_SOURCES
  tests/registration/brief_test.cpp
  tests/registration/brief_strips_test.cpp
  tests/registration/lm_test.cpp
  tests/registration/motion_estimation_test.cpp
  tests/registration/ransac_test.cpp
  tests/registration/registration_api_test.cpp
)
brimvel_sources(BRIMVEL_TEST_WARP_SOURCES
  tests/warp/border_fill_test.cpp
  tests/warp/perspective_warp_test.cpp
)
brimvel_sources(BRIMVEL_TEST_CONFIG_SOURCES
  tests/config/xml_config_test.cpp
  tests/config/xml_parser_test.cpp
)
brimvel_sources(BRIMVEL_TEST_BOUNDSCHECK_SOURCES
  tests/boundscheck/mem_str_test.cpp
  tests/boundscheck/scan_peer_test.cpp
  tests/boundscheck/scan_test.cpp
)
brimvel_sources(BRIMVEL_TEST_API_SOURCES
  tests/api/concurrent_calls_test.cpp
  tests/api/entry_points_test.cpp
)
# Allocations and thread starts failing in turn; counting_new.cpp counts the
# library's operator new, in this binary only.
brimvel_sources(BRIMVEL_TEST_FAULTS_SOURCES
  tests/faults/counting_new.cpp
  tests/faults/failure_paths_test.cpp
  tests/faults/fault_injection_test.cpp
)
# The demo tool's tests (test_tools; with BRIMVEL_BUILD_TOOLS).
brimvel_sources(BRIMVEL_TEST_TOOLS_SOURCES
  tests/tools/demo_tool_test.cpp
)

# libFuzzer targets (tests/fuzz/CMakeLists.txt): one executable per file,
# named after it.
brimvel_sources(BRIMVEL_FUZZ_SOURCES
  tests/fuzz/fuzz_bounds_copies.cpp
  tests/fuzz/fuzz_motion.cpp
  tests/fuzz/fuzz_parse_string.cpp
  tests/fuzz/fuzz_parse_xml_api.cpp
  tests/fuzz/fuzz_ransac.cpp
  tests/fuzz/fuzz_scan.cpp
  tests/fuzz/fuzz_warp.cpp
)
# The ASan build replays each target's saved inputs through this main
# (tests/CMakeLists.txt); the soak run (tests/soak/run.sh) is built on demand.
brimvel_sources(BRIMVEL_FUZZ_REPLAY_SOURCES
  tests/fuzz/replay_main.cpp
)
brimvel_sources(BRIMVEL_SOAK_SOURCES
  tests/soak/soak.cpp
)

# ---------------------------------------------------------------------------
# The benchmarks (bench/CMakeLists.txt) and the demo tool (tools/).
# bench/arm/ lists its few files in its own CMakeLists.txt.
# ---------------------------------------------------------------------------
brimvel_sources(BRIMVEL_BENCH_SOURCES
  bench/bench_main.cpp
  bench/box_filter_bench.cpp
  bench/integral_image_bench.cpp
  bench/registration_bench.cpp
  bench/scale_x4_bench.cpp
  bench/warp_bench.cpp
  bench/yuv2rgb_hist_bench.cpp
)
brimvel_sources(BRIMVEL_DEMO_SOURCES
  tools/buffers.cpp
  tools/burst.cpp
  tools/demo_main.cpp
  tools/evaluate.cpp
  tools/library_log.cpp
  tools/options.cpp
  tools/render.cpp
  tools/report.cpp
  tools/stage_balance.cpp
  tools/stage_config.cpp
  tools/stage_descriptors.cpp
  tools/stage_facemap.cpp
  tools/stage_registration.cpp
  tools/stages.cpp
  tools/yuv_frame.cpp
)

