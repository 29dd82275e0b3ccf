# SPDX-License-Identifier: MIT
# edidsim page --screenshots: exit 0 and one PNG per step of the scenario.
# -DEDIDSIM= -DSCENARIO= -DDIR=
file(READ ${SCENARIO} json)
string(JSON steps LENGTH "${json}" steps)
file(REMOVE_RECURSE ${DIR})
execute_process(COMMAND ${EDIDSIM} page --screenshots ${DIR} ${SCENARIO}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "edidsim page exited ${status}\n${out}\n${err}")
endif()
file(GLOB pictures ${DIR}/step-*.png)
list(LENGTH pictures count)
if(NOT count EQUAL steps)
  message(FATAL_ERROR "${count} pictures for ${steps} steps in ${DIR}\n${out}")
endif()
foreach(picture IN LISTS pictures)
  file(SIZE ${picture} size)
  # A blank 1100x700 PNG compresses to a few kilobytes.
  if(size LESS 20000)
    message(FATAL_ERROR "${picture} is ${size} bytes: blank?")
  endif()
endforeach()
