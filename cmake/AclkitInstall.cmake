# Installs the shared library, its public headers and a package config, so that another
# project can use find_package(aclkit) and link aclkit::aclkit; and the static layers
# aclkit_layer() declared, each a component of that package (find_package(aclkit COMPONENTS
# client) gives aclkit::client) and a pkg-config module of its own (aclkit-client).
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

# The components, as aclkit_install_layer recorded them: an export set and a pkg-config module
# each, and their table in the package config.
get_property(ACLKIT_COMPONENTS GLOBAL PROPERTY ACLKIT_COMPONENTS)
set(ACLKIT_COMPONENT_TABLE "set(_aclkit_components ${ACLKIT_COMPONENTS})\n")
# A static layer built with gcov counters needs gcov's runtime in the program that links it.
set(ACLKIT_PC_LAYER_LIBS "")
if(ACLKIT_COVERAGE)
  set(ACLKIT_PC_LAYER_LIBS " --coverage")
endif()
foreach(ACLKIT_PC_LAYER IN LISTS ACLKIT_COMPONENTS)
  get_property(closure GLOBAL PROPERTY ACLKIT_COMPONENT_${ACLKIT_PC_LAYER}_CLOSURE)
  get_property(depends GLOBAL PROPERTY ACLKIT_COMPONENT_${ACLKIT_PC_LAYER}_DEPENDS)
  get_property(packages GLOBAL PROPERTY ACLKIT_COMPONENT_${ACLKIT_PC_LAYER}_PACKAGES)
  install(EXPORT aclkit-${ACLKIT_PC_LAYER}Targets NAMESPACE aclkit::
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/aclkit)
  string(APPEND ACLKIT_COMPONENT_TABLE "set(_aclkit_${ACLKIT_PC_LAYER}_closure ${closure})\n"
                                       "set(_aclkit_${ACLKIT_PC_LAYER}_packages ${packages})\n")
  list(TRANSFORM depends PREPEND aclkit-)
  list(JOIN depends " " ACLKIT_PC_REQUIRES)
  set(ACLKIT_PC_REQUIRES " ${ACLKIT_PC_REQUIRES} aclkit")
  string(REPLACE "  " " " ACLKIT_PC_REQUIRES "${ACLKIT_PC_REQUIRES}")
  # Used by the sources only: a consumer compiles nothing of these, but finds their headers.
  list(JOIN packages " " ACLKIT_PC_REQUIRES_PRIVATE)
  if(ACLKIT_PC_REQUIRES_PRIVATE)
    set(ACLKIT_PC_REQUIRES_PRIVATE " ${ACLKIT_PC_REQUIRES_PRIVATE}")
  endif()
  get_property(system_libs GLOBAL PROPERTY ACLKIT_COMPONENT_${ACLKIT_PC_LAYER}_SYSTEM_LIBS)
  set(layer_libs "${ACLKIT_PC_LAYER_LIBS}")
  foreach(lib IN LISTS system_libs)
    string(APPEND ACLKIT_PC_LAYER_LIBS " -l${lib}")
  endforeach()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/aclkit-layer.pc.in
                 ${PROJECT_BINARY_DIR}/aclkit-${ACLKIT_PC_LAYER}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/aclkit-${ACLKIT_PC_LAYER}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  set(ACLKIT_PC_LAYER_LIBS "${layer_libs}")
endforeach()

# The object layers are build-only; the installed library stands alone.
install(EXPORT aclkitTargets NAMESPACE aclkit:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/aclkit)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/aclkitConfig.cmake.in
  ${PROJECT_BINARY_DIR}/aclkitConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/aclkit)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/aclkitConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/aclkitConfig.cmake ${PROJECT_BINARY_DIR}/aclkitConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/aclkit)
