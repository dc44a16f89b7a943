# Checks that README shows SOURCE as it is.

file(READ "${README}" readme)
file(READ "${SOURCE}" source)
string(FIND "${readme}" "```cpp\n${source}```\n" position)
if(position EQUAL -1)
    message(FATAL_ERROR "${README} shows another ${SOURCE}")
endif()
