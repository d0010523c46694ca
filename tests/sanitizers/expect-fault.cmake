# PROGRAM must end with a failure and name its FAULT.
execute_process(COMMAND ${PROGRAM} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(status EQUAL 0 OR NOT output MATCHES "${FAULT}")
    message(FATAL_ERROR "The fault was not caught: status ${status}, output: ${output}")
endif()
