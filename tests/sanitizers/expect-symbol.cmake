# Some object of LIBRARY must call a function whose name starts with SYMBOL.
execute_process(COMMAND ${NM} -u ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
if(NOT symbols MATCHES " U ${SYMBOL}")
    message(FATAL_ERROR "${LIBRARY} was built without the sanitizer.")
endif()
