# SPDX-License-Identifier: MIT
# Installs the plug-in and the simulator into a fresh prefix, as the packages
# lay them out, and runs the installed program without arguments: it must
# take the library and the default scenario installed beside it, never the
# build tree's.
#   BUILD     the build directory
#   PREFIX    a scratch directory for the installation
#   EMULATOR  what runs the program (cross builds), separated by |
string(REPLACE "|" ";" emulator "${EMULATOR}")
file(REMOVE_RECURSE "${PREFIX}")
foreach(component plugin simulator)
  execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}/usr" --component ${component}
                  RESULT_VARIABLE code OUTPUT_QUIET ERROR_VARIABLE err)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "installing ${component} failed: ${err}")
  endif()
endforeach()
file(GLOB_RECURSE plugins "${PREFIX}/usr/lib/*liboutputedidviewmodel.so")
list(LENGTH plugins count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one installed plug-in, found: ${plugins}")
endif()

# A default scenario of its own name shows which one was played.
set(scenario "${PREFIX}/usr/share/edidsim/scenarios/default.json")
file(READ "${scenario}" text)
string(JSON text SET "${text}" name "\"the installed default\"")
file(WRITE "${scenario}" "${text}")

function(run expected_code expected_text)
  execute_process(COMMAND ${emulator} "${PREFIX}/usr/bin/edidsim" RESULT_VARIABLE code OUTPUT_VARIABLE out
                  ERROR_VARIABLE err)
  string(FIND "${out}${err}" "${expected_text}" at)
  if(NOT code EQUAL expected_code OR at EQUAL -1)
    message(FATAL_ERROR "expected status ${expected_code} and \"${expected_text}\", got ${code}\n"
                        "--- stdout\n${out}--- stderr\n${err}")
  endif()
endfunction()

run(0 "/scenarios/default.json: the installed default")
# A broken installed library must be the one that fails to load, though the
# build tree's loads.
file(WRITE "${plugins}" "not a library\n")
run(3 "${plugins}: cannot be loaded")
file(REMOVE_RECURSE "${PREFIX}")
