# How a test program is made and how ctest runs it.

find_package(GTest REQUIRED)
include(GoogleTest)

# Seconds for one case; instrumented code is slower.
set(UXPORT_TEST_TIMEOUT 60)
if(UXPORT_SANITIZE)
    set(UXPORT_TEST_TIMEOUT 300)
endif()
set(UXPORT_SOAK_TIMEOUT 3600)

# Makes the test program `name` of all sources in FOLDERS (relative to tests/); nothing while there are none.
# ctest runs each case in a process of its own, under the name `name/Suite.Case`. A case with "Soak" in its
# name or its suite's gets the label soak and stays out of the default run.
function(uxport_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL" "FOLDERS;LIBRARIES;INCLUDES")
    set(sources)
    foreach(folder IN LISTS arg_FOLDERS)
        file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/${folder}/*.cpp")
        list(APPEND sources ${found})
    endforeach()
    if(NOT sources)
        message(STATUS "${name}: no sources yet")
        return()
    endif()
    foreach(library IN LISTS arg_LIBRARIES)
        if(NOT TARGET ${library})
            message(STATUS "${name}: no target ${library} yet")
            return()
        endif()
    endforeach()

    file(GLOB support CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/support/*.cpp")
    add_executable(${name} ${sources} ${support})
    uxport_compile(${name})
    # GoogleTest's own macros for typed and parameterised suites.
    target_compile_options(${name} PRIVATE
        $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests" "${PROJECT_SOURCE_DIR}" ${arg_INCLUDES})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES TEST_PREFIX "${name}/"
        TEST_FILTER "-*Soak*" PROPERTIES LABELS ${arg_LABEL} TIMEOUT ${UXPORT_TEST_TIMEOUT})
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES TEST_PREFIX "${name}/"
        TEST_FILTER "*Soak*" PROPERTIES LABELS soak TIMEOUT ${UXPORT_SOAK_TIMEOUT} RUN_SERIAL ON)
endfunction()
