# Installs the shared library, its public headers and a package config, so that another
# project can use find_package(aclkit) and link aclkit::aclkit.
include(CMakePackageConfigHelpers)

aclkit_finish_library()

install(TARGETS aclkit EXPORT aclkitTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Headers keep their layer paths under one prefix: <aclkit/Acl/AclApiSm.h>.
foreach(layer_dir platform model Acl)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${layer_dir}/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/aclkit/${layer_dir}
          FILES_MATCHING PATTERN "*.h")
endforeach()

# pkg-config, for builds that do not use CMake: the same include root, language level and
# definitions as the CMake package.
file(RELATIVE_PATH ACLKIT_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ACLKIT_PC_TO_PREFIX "${ACLKIT_PC_TO_PREFIX}")
set(ACLKIT_PC_DEFINES "")
if(ACLKIT_THREAD_SAFE_PTR)
  set(ACLKIT_PC_DEFINES " -DFWK_THREAD_SAFE_PTR=1")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/aclkit.pc.in ${PROJECT_BINARY_DIR}/aclkit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/aclkit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The object layers are build-only; the installed library stands alone.
install(EXPORT aclkitTargets NAMESPACE aclkit:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/aclkit)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/aclkitConfig.cmake.in
  ${PROJECT_BINARY_DIR}/aclkitConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/aclkit)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/aclkitConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/aclkitConfig.cmake ${PROJECT_BINARY_DIR}/aclkitConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/aclkit)
