# Fails unless LIBRARY defines exactly the core library's operations and
# VLIBCErrSet among its dynamic symbols. Run by ctest with -DLIBRARY= -DNM=.
set(expected VLIBCErrGet VLIBCErrSet VLIBCErrorGetFile VLIBCErrorGetLine VLIBCExec
             VLIBCFileTouch VLIBCProcForkEx)

execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBRARY}
                OUTPUT_VARIABLE listing RESULT_VARIABLE nm_result)
if(NOT nm_result EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()

string(REGEX MATCHALL "[^\n]+" lines "${listing}")
set(exported)
foreach(line IN LISTS lines)
  string(REGEX REPLACE " .*" "" name "${line}")
  list(APPEND exported ${name})
endforeach()
list(SORT exported)
list(SORT expected)
if(NOT exported STREQUAL expected)
  message(FATAL_ERROR "exported: ${exported}\nexpected: ${expected}")
endif()
