# The library itself. Its objects are a target of their own, so that the tests can link them with another stack.

add_library(uxport_objects OBJECT)
uxport_compile(uxport_objects)
target_compile_definitions(uxport_objects PRIVATE UXPORT_BUILDING)
target_include_directories(uxport_objects PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
target_link_libraries(uxport_objects PUBLIC mantle ipstack_headers connhub_headers)

foreach(folder reactor socket transport acceptor connector manager proxy p2p)
    file(GLOB sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.cpp")
    target_sources(uxport_objects PRIVATE ${sources})
endforeach()

add_library(uxport SHARED)
add_library(uxport::uxport ALIAS uxport)
target_link_libraries(uxport PRIVATE uxport_objects)
target_link_libraries(uxport PUBLIC mantle ipstack connhub)
target_include_directories(uxport PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(uxport PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0 LINKER_LANGUAGE CXX)
