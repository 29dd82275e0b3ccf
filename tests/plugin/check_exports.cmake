# SPDX-License-Identifier: MIT
# Checks the built library's symbol tables: exactly the two entry points are
# defined and visible in the dynamic table, unversioned, and the constant tables are in
# the file although nothing exported refers to them.
# Usage: cmake -DLIBRARY=<file> -DREADELF=<readelf> [-DNO_TABLES=ON] -P check_exports.cmake
# NO_TABLES: a plug-in without the constant tables (the probe).

execute_process(COMMAND ${READELF} --dyn-syms -W ${LIBRARY}
                OUTPUT_VARIABLE dynsyms RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "readelf failed on ${LIBRARY}")
endif()

set(defined "")
string(REPLACE "\n" ";" lines "${dynsyms}")
foreach(line IN LISTS lines)
  # Num: Value Size Type Bind Vis Ndx Name
  if(line MATCHES "^ *[0-9]+: +[0-9a-f]+ +[0-9]+ +([A-Z_]+) +([A-Z_]+) +([A-Z_]+) +([A-Z0-9_]+) +(.*)$")
    set(bind "${CMAKE_MATCH_2}")
    set(ndx "${CMAKE_MATCH_4}")
    set(name "${CMAKE_MATCH_5}")
    # Local entries (section symbols some linkers add) are not exports.
    if(NOT ndx STREQUAL "UND" AND NOT bind STREQUAL "LOCAL" AND NOT name STREQUAL "")
      list(APPEND defined "${name}")
    endif()
  endif()
endforeach()
list(SORT defined)
if(NOT defined STREQUAL "pluginfo;pluginit")
  message(FATAL_ERROR "defined dynamic symbols are '${defined}', expected exactly 'pluginfo;pluginit'")
endif()

if(NO_TABLES)
  message(STATUS "exports: ${defined}")
  return()
endif()
execute_process(COMMAND ${READELF} -sW ${LIBRARY} OUTPUT_VARIABLE symtab)
foreach(table g_mapIconPath g_mapThumbTagName g_mapDetailTimingTagName g_mapConnectorTypeName
              g_mapOrderColorSpace GroupKeyPress ScreenDynamichViewModel)
  if(NOT symtab MATCHES "LCD9Constants[0-9]+${table}(B5cxx11)?E")
    message(FATAL_ERROR "constant ${table} is not in ${LIBRARY}")
  endif()
endforeach()
message(STATUS "exports: ${defined}; constant tables present")
