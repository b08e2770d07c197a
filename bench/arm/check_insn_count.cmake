# Checks the instruction-count plugin on the guest probe: four threads of a
# two-instruction loop must count 2 x iterations x 4 instructions (start-up
# and exit add about 0.1 million), and the count must grow by exactly that
# much over the same program with no iterations.
#   -DEMULATOR=qemu-...|args -DPLUGIN=libinsn_count.so -DPROBE=insn_probe -DWORK=dir
string(REPLACE "|" ";" emulator "${EMULATOR}")
set(iterations 5000000)
set(threads 4)
math(EXPR loop "2 * ${iterations} * ${threads}")

function(count_insns iters out_var)
  set(out ${WORK}/insn_probe_${iters}.count)
  file(REMOVE ${out})
  execute_process(COMMAND ${emulator} -plugin ${PLUGIN},out=${out} ${PROBE} ${iters} ${threads}
                  RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0 OR NOT EXISTS ${out})
    message(FATAL_ERROR "the probe under the plugin failed (status ${rc})")
  endif()
  file(READ ${out} text)
  if(NOT text MATCHES "^insns ([0-9]+)")
    message(FATAL_ERROR "no count in ${out}: ${text}")
  endif()
  set(${out_var} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

count_insns(0 idle)
count_insns(${iterations} busy)
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
math(EXPR off "${diff} - ${loop}")
if(off LESS 0)
  math(EXPR off "0 - ${off}")
endif()
if(off GREATER slack)
  message(FATAL_ERROR "the loop counted ${diff} instructions, expected ${loop}")
endif()
