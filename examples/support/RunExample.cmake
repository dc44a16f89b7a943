# Runs PROGRAM with ARGUMENTS; fails unless its exit status is STATUS and its output has a match of LINE.

execute_process(COMMAND "${PROGRAM}" ${ARGUMENTS} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE status)
message("${output}${errors}")
if(NOT status EQUAL STATUS)
    message(FATAL_ERROR "exit status ${status}, not ${STATUS}")
endif()
if(NOT "${output}${errors}" MATCHES "${LINE}")
    message(FATAL_ERROR "no line matches ${LINE}")
endif()
