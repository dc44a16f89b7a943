# What `cmake --install` puts in place: headers, libraries, the CMake package and the pkg-config file.

include(CMakePackageConfigHelpers)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" "${PROJECT_SOURCE_DIR}/platform/include/"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.h")
install(TARGETS uxport mantle ipstack ipstack_headers connhub connhub_headers EXPORT uxportTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/uxport")
install(EXPORT uxportTargets NAMESPACE uxport:: DESTINATION "${package_dir}")
configure_package_config_file(cmake/uxportConfig.cmake.in "${PROJECT_BINARY_DIR}/uxportConfig.cmake"
    INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/uxportConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/uxportConfig.cmake" "${PROJECT_BINARY_DIR}/uxportConfigVersion.cmake"
    DESTINATION "${package_dir}")

# Found from its own place, so that an installed tree may be moved; absolute directories stay as they were given.
set(pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH up "/${pc_dir}" "/")
    string(REGEX REPLACE "/$" "" up "${up}")
    set(PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(what INCLUDEDIR LIBDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${what}}")
        set(PC_${what} "${CMAKE_INSTALL_${what}}")
    else()
        set(PC_${what} "\${prefix}/${CMAKE_INSTALL_${what}}")
    endif()
endforeach()
configure_file(cmake/uxport.pc.in "${PROJECT_BINARY_DIR}/uxport.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/uxport.pc" DESTINATION "${pc_dir}")
