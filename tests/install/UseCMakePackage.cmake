# Configures, builds and runs the project SOURCE against the package in PREFIX.
file(REMOVE_RECURSE "${BUILD}")
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${BUILD}" -G "${GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BUILD}" COMMAND_ERROR_IS_FATAL ANY)
foreach(program consumer consumer_mantle consumer_ipstack consumer_connhub)
    execute_process(COMMAND "${BUILD}/${program}" COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endforeach()
