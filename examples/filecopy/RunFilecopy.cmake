# Runs PROGRAM on FILE, made with SIZE bytes (-1: not there), and checks the exit STATUS and that the last line of
# the standard output is LINE (a regular expression; empty: no output at all).

file(REMOVE "${FILE}")
if(SIZE EQUAL 0)
    file(WRITE "${FILE}" "")
elseif(SIZE GREATER 0)
    string(RANDOM LENGTH ${SIZE} RANDOM_SEED 1 content)
    file(WRITE "${FILE}" "${content}")
endif()

execute_process(COMMAND "${PROGRAM}" "${FILE}" ${ARGUMENTS}
    OUTPUT_VARIABLE output ERROR_VARIABLE error RESULT_VARIABLE status)
file(REMOVE "${FILE}")
message("${output}${error}")
if(NOT status STREQUAL STATUS)
    message(FATAL_ERROR "exit status ${status} where ${STATUS} was expected")
endif()
if(LINE STREQUAL "")
    if(NOT output STREQUAL "")
        message(FATAL_ERROR "unexpected output")
    endif()
    if(error STREQUAL "")
        message(FATAL_ERROR "no message on standard error")
    endif()
elseif(NOT output MATCHES "(^|\n)${LINE}\n$")
    message(FATAL_ERROR "the last line is not as expected")
endif()
