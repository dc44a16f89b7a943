# Compiles SOURCE/main.cpp with the flags that uxport.pc in LIBDIR gives, and runs it.
file(REMOVE_RECURSE "${BUILD}")
file(MAKE_DIRECTORY "${BUILD}")
set(ENV{PKG_CONFIG_PATH} "${LIBDIR}/pkgconfig")
execute_process(COMMAND pkg-config --cflags --libs uxport OUTPUT_VARIABLE flags
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${CXX_FLAGS} ${flags}")
execute_process(COMMAND "${CXX}" -std=c++17 "${SOURCE}/main.cpp" -o "${BUILD}/consumer" ${flags}
    COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
set(ENV{LD_LIBRARY_PATH} "${LIBDIR}")
execute_process(COMMAND "${BUILD}/consumer" COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
