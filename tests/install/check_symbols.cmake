# Lists the dynamic symbols that a library defines and compares them with the
# twelve entry points:
#   cmake -DNM=<nm> -DLIBRARY=<libmurmex.so> -P check_symbols.cmake
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${out}")
set(found)
foreach(line IN LISTS lines)
  # "<address> <type> <name>": the name is the last field.
  if(line MATCHES "([^ ]+)$")
    list(APPEND found ${CMAKE_MATCH_1})
  endif()
endforeach()
list(SORT found)
set(expected DnBuildProfile DnBuildProfile2 DnFreeMemory DnReadProfile DnReadProfileSamples
  DnReadProfileSamples2 DnRemoveNoise DnRemoveNoise2 DnSetDenoiseLevels DnSetRowsPerThread
  DnSetStripWidth DnWriteProfile)
list(SORT expected)
if(NOT found STREQUAL expected)
  string(REPLACE ";" "\n  " f "${found}")
  message(FATAL_ERROR "libmurmex.so defines these dynamic symbols:\n  ${f}\nexpected exactly the twelve Dn entry points")
endif()
message(STATUS "exactly the twelve entry points are exported")
