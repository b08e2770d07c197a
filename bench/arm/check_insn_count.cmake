# Checks the instruction-count plugin on the guest probe: four threads of a
# two-instruction loop must count 2 x iterations x 4 instructions (start-up
# and exit add about 0.1 million), and the count must grow by exactly that
# much over the same program with no iterations. Then with the loop's
# function given as uncounted: the count must not grow with the iterations,
# and the uncounted instructions must grow by the loop's.
#   -DEMULATOR=qemu-...|args -DPLUGIN=libinsn_count.so -DPROBE=insn_probe -DWORK=dir -DNM=nm
string(REPLACE "|" ";" emulator "${EMULATOR}")
set(iterations 5000000)
set(threads 4)
math(EXPR loop "2 * ${iterations} * ${threads}")

# count_insns(ITERATIONS COUNT_VAR UNCOUNTED_VAR [PLUGIN_ARGUMENTS])
function(count_insns iters out_var uncounted_var)
  set(out ${WORK}/insn_probe_${iters}.count)
  file(REMOVE ${out})
  execute_process(COMMAND ${emulator} -plugin ${PLUGIN},out=${out}${ARGN} ${PROBE} ${iters} ${threads}
                  RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0 OR NOT EXISTS ${out})
    message(FATAL_ERROR "the probe under the plugin failed (status ${rc})")
  endif()
  file(READ ${out} text)
  if(NOT text MATCHES "^insns ([0-9]+)\nuncounted ([0-9]+)")
    message(FATAL_ERROR "no count in ${out}: ${text}")
  endif()
  set(${out_var} ${CMAKE_MATCH_1} PARENT_SCOPE)
  set(${uncounted_var} ${CMAKE_MATCH_2} PARENT_SCOPE)
endfunction()

# |a - b| within slack, or a failure naming what.
function(check_near a b slack what)
  math(EXPR off "${a} - ${b}")
  if(off LESS 0)
    math(EXPR off "0 - ${off}")
  endif()
  if(off GREATER slack)
    message(FATAL_ERROR "${what}: ${a}, expected ${b}")
  endif()
endfunction()

count_insns(0 idle idle_u)
count_insns(${iterations} busy busy_u)
math(EXPR diff "${busy} - ${idle}")
message(STATUS "no iterations: ${idle}; ${iterations} x ${threads} threads: ${busy} (loop ${diff}, expected ${loop})")

# The whole count within 3% of the loop's (start-up included).
math(EXPR low "${loop} * 97 / 100")
math(EXPR high "${loop} * 103 / 100")
if(busy LESS low OR busy GREATER high)
  message(FATAL_ERROR "count ${busy} is not within 3% of ${loop}")
endif()
# The loop alone within 0.01%: every thread's blocks are counted, once.
math(EXPR slack "${loop} / 10000")
check_near(${diff} ${loop} ${slack} "the loop counted")

# The loop's function uncounted: its calls, on all four threads, go to the
# uncounted total and nothing else moves (but for the joins' waiting).
if(NM)
  execute_process(COMMAND ${NM} -S --defined-only ${PROBE} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
  string(REGEX MATCH "([0-9a-f]+) ([0-9a-f]+) [Tt] count_down\n" line "${symbols}")
  if(NOT rc EQUAL 0 OR NOT line)
    message(FATAL_ERROR "no count_down in the probe's symbol table")
  endif()
  file(WRITE ${WORK}/insn_probe.uncounted "${CMAKE_MATCH_1} ${CMAKE_MATCH_2} count_down\n")
  count_insns(0 idle_c idle_cu ",uncounted=${WORK}/insn_probe.uncounted")
  count_insns(${iterations} busy_c busy_cu ",uncounted=${WORK}/insn_probe.uncounted")
  math(EXPR diff_c "${busy_c} - ${idle_c}")
  math(EXPR diff_u "${busy_cu} - ${idle_cu}")
  message(STATUS "count_down uncounted: the count grows by ${diff_c}, the uncounted instructions by ${diff_u}")
  check_near(${diff_c} 0 ${slack} "with count_down uncounted, the loop counted")
  check_near(${diff_u} ${loop} ${slack} "with count_down uncounted, the uncounted instructions grew by")
endif()
