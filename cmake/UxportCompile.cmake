# What every target of this project is compiled with.

set(UXPORT_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize: address,undefined or thread")
option(UXPORT_WERROR "Warnings are errors" ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
find_program(UXPORT_CCACHE ccache)
mark_as_advanced(UXPORT_CCACHE)
if(UXPORT_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER "${UXPORT_CCACHE}")
    set(CMAKE_CXX_COMPILER_LAUNCHER "${UXPORT_CCACHE}")
endif()
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
# The installed libraries find each other beside themselves.
set(CMAKE_INSTALL_RPATH "$ORIGIN")

if(UXPORT_SANITIZE)
    add_compile_options(-fsanitize=${UXPORT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${UXPORT_SANITIZE})
endif()

# Every object counts the edges it passes, so that a fuzzer sees where its input leads, in lwIP too.
if(UXPORT_BUILD_FUZZ)
    if(NOT CMAKE_C_COMPILER_ID MATCHES "Clang" OR NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "The fuzzers need clang")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Language level and warnings of the project's own code.
function(uxport_compile target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                               $<$<BOOL:${UXPORT_WERROR}>:-Werror>)
    endif()
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
    endif()
endfunction()
