# Lets PROGRAM play a script and checks what was heard, and by how many.

string(REPEAT "x" 501 too_long)
file(WRITE "${FOLDER}/script.txt"
    "ann hello?\n" "bob hello, ann\n" "ann how do you do\n" "cid good evening everybody\n" "dora ${too_long}\n"
    "bob who was that?\n" "ann /quit\n" "cid shall we?\n" "ann back again\n" "bob /quit\n")
set(expected
    "ann joins (heard by 1)\n" "ann: hello? (heard by 1)\n" "bob joins (heard by 2)\n"
    "bob: hello, ann (heard by 2)\n" "ann: how do you do (heard by 2)\n" "cid joins (heard by 3)\n"
    "cid: good evening everybody (heard by 3)\n" "dora joins (heard by 4)\n" "dora leaves (heard by 3)\n"
    "bob: who was that? (heard by 3)\n" "ann leaves (heard by 3)\n" "cid: shall we? (heard by 2)\n"
    "ann joins (heard by 3)\n" "ann: back again (heard by 3)\n" "bob leaves (heard by 3)\n")
string(CONCAT expected ${expected})

execute_process(COMMAND "${PROGRAM}" "${FOLDER}/script.txt" OUTPUT_VARIABLE output ERROR_VARIABLE error
    RESULT_VARIABLE status)
message("${output}${error}")
if(NOT status EQUAL 0 OR NOT error STREQUAL "" OR NOT output STREQUAL expected)
    message(FATAL_ERROR "exit status ${status}; expected was:\n${expected}")
endif()
