# SPDX-License-Identifier: MIT
# edidsim page --screenshots: a directory holding pictures of another run is
# refused (exit 2, naming it and --replace); --replace removes the step
# pictures of an earlier run but never other pictures, which keep the
# directory refused. Then the run exits 0 with one PNG per step of the
# scenario and nothing on standard error.
# -DEDIDSIM= -DSCENARIO= -DDIR=
file(READ ${SCENARIO} json)
string(JSON steps LENGTH "${json}" steps)
file(REMOVE_RECURSE ${DIR})
file(MAKE_DIRECTORY ${DIR})
# Numbered past any scenario's steps: only --replace removes it.
file(WRITE ${DIR}/step-99-old.png "not this run's")
file(WRITE ${DIR}/photo.png "not a step picture")
execute_process(COMMAND ${EDIDSIM} page --screenshots ${DIR} --replace ${SCENARIO}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 2 OR NOT err MATCHES "${DIR} holds 1 picture \\(photo.png\\)" OR NOT EXISTS ${DIR}/photo.png)
  message(FATAL_ERROR "a directory with another picture: edidsim page --replace exited ${status}\n${err}")
endif()
file(REMOVE ${DIR}/photo.png)
execute_process(COMMAND ${EDIDSIM} page --screenshots ${DIR} ${SCENARIO}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 2 OR NOT err MATCHES "${DIR}.*--replace")
  message(FATAL_ERROR "a directory with old pictures: edidsim page exited ${status}\n${err}")
endif()
execute_process(COMMAND ${EDIDSIM} page --screenshots ${DIR} --replace ${SCENARIO}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0 OR NOT err STREQUAL "")
  message(FATAL_ERROR "edidsim page exited ${status}\n${out}\n--- stderr\n${err}")
endif()
file(GLOB pictures ${DIR}/step-*.png)
list(LENGTH pictures count)
list(SORT pictures)
list(GET pictures 0 first)
if(NOT count EQUAL steps OR NOT first MATCHES "/step-00-[^/]*\\.png$")
  message(FATAL_ERROR "${count} pictures for ${steps} steps in ${DIR}, the first ${first}\n${out}")
endif()
foreach(picture IN LISTS pictures)
  file(SIZE ${picture} size)
  # A blank 1280x800 PNG compresses to a few kilobytes.
  if(size LESS 20000)
    message(FATAL_ERROR "${picture} is ${size} bytes: blank?")
  endif()
endforeach()
