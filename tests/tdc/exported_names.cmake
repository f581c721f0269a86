# Every function that HEADER declares is exported by LIBRARY under its plain name.
file(READ ${HEADER} header)
string(REGEX REPLACE "//[^\n]*" "" header "${header}")
string(REGEX MATCHALL "tdc56[A-Za-z0-9]+\\(" declared "${header}")
list(LENGTH declared count)
if(count LESS 26)
  message(FATAL_ERROR "Only ${count} functions found in ${HEADER}")
endif()

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
foreach(function IN LISTS declared)
  string(REPLACE "(" "" function ${function})
  if(NOT symbols MATCHES " T ${function}\n")
    message(SEND_ERROR "${LIBRARY} does not export ${function}")
  endif()
endforeach()
