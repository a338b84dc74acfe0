# One way to declare a layer, a test and a benchmark, so that every component is built alike.

function(aclkit_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                           -Wcast-align -Woverloaded-virtual -Wimplicit-fallthrough)
  if(ACLKIT_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

function(aclkit_sanitize target)
  if(ACLKIT_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-omit-frame-pointer
                                             -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
  if(ACLKIT_SANITIZE_THREAD)
    target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=thread)
  endif()
  if(ACLKIT_BUILD_FUZZERS)
    # Coverage for the fuzzer in every layer; the harness itself links the fuzzer's main.
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

# aclkit_include_root(<target> <directory> <scope>)
# Makes the headers of <directory> reachable from <target> as "aclkit/<directory>/...", through
# an include root of its own in the build tree that holds only this directory: whoever links
# <target> sees exactly the layers it names, and a consumer's own "model/Types.h" can never
# stand in for one of ours. Trace lines and assertions print paths relative to the project,
# whichever way in.
function(aclkit_include_root target dir scope)
  set(root ${PROJECT_BINARY_DIR}/include/${dir})
  file(MAKE_DIRECTORY ${root}/aclkit)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${dir} ${root}/aclkit/${dir} SYMBOLIC)
  target_include_directories(${target} ${scope} $<BUILD_INTERFACE:${root}>)
  # Build paths only: an installed layer's users compile against the installed headers.
  target_compile_options(${target} ${scope} $<BUILD_INTERFACE:-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=>
                                           $<BUILD_INTERFACE:-fmacro-prefix-map=${root}/aclkit/=>)
endfunction()

# aclkit_install_layer(<name> <directory> DEPENDS <directories...> LIBS <libraries...>)
# Installs a static layer as the component <name> of the aclkit package: its library, its
# headers (internal/ stays behind: no installed header includes it) and an export set of its
# own, and records what the package config and the pkg-config module need to know of it. The
# component's dependencies are the static layers it names, and the packages of the imported
# libraries it links (nlohmann_json::nlohmann_json comes from the package nlohmann_json), and
# the system libraries it links by name.
function(aclkit_install_layer name dir)
  cmake_parse_arguments(ARG "" "" "DEPENDS;LIBS" ${ARGN})
  set(target aclkit_${name})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
  if(ACLKIT_COVERAGE)  # its objects call gcov's runtime, which the shared library keeps hidden
    target_link_options(${target} INTERFACE $<INSTALL_INTERFACE:--coverage>)
  endif()
  install(TARGETS ${target} EXPORT aclkit-${name}Targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/aclkit/${dir}
          FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)
  # Every component below this one, each once and after those it needs: the order a config
  # loads them in.
  set(closure "")
  set(components "")
  foreach(dep IN LISTS ARG_DEPENDS)
    string(TOLOWER ${dep} dep_name)
    get_property(known GLOBAL PROPERTY ACLKIT_COMPONENTS)
    if(dep_name IN_LIST known)
      get_property(below GLOBAL PROPERTY ACLKIT_COMPONENT_${dep_name}_CLOSURE)
      list(APPEND closure ${below} ${dep_name})
      list(APPEND components ${dep_name})
    endif()
  endforeach()
  list(REMOVE_DUPLICATES closure)
  set(packages "")
  set(system_libs "")
  foreach(lib IN LISTS ARG_LIBS)
    if(lib MATCHES "^([^:]+)::")
      list(APPEND packages ${CMAKE_MATCH_1})
    else()  # a system library linked by name: -l<name> for a pkg-config consumer
      list(APPEND system_libs ${lib})
    endif()
  endforeach()
  set_property(GLOBAL APPEND PROPERTY ACLKIT_COMPONENTS ${name})
  set_property(GLOBAL PROPERTY ACLKIT_COMPONENT_${name}_CLOSURE ${closure})
  set_property(GLOBAL PROPERTY ACLKIT_COMPONENT_${name}_DEPENDS ${components})
  set_property(GLOBAL PROPERTY ACLKIT_COMPONENT_${name}_PACKAGES ${packages})
  set_property(GLOBAL PROPERTY ACLKIT_COMPONENT_${name}_SYSTEM_LIBS ${system_libs})
endfunction()

# aclkit_layer(DIR <directory> CORE|STATIC|PYTHON [DEPENDS <directories...>] SOURCES <files...>
#              [LIBS <other libraries...>])
# The one declaration of a layer and of the layers it depends on. tools/check-layers.sh reads
# these calls back to hold every include, and the README's table, to them; a layer's target is
# aclkit_<directory in lower case>.
#   CORE    an object library compiled into the shared aclkit library (platform, model, Acl);
#           it may depend on core layers only. What its headers mark ACLKIT_EXPORT is exported.
#   STATIC  a static library on top of the shared library, built as a program that installed
#           it would build one (aclkit::<name>); it exports nothing. Installed as the package's
#           component <name>, with a pkg-config module aclkit-<name>.
#   PYTHON  the Python module, on top of the static layers it names.
function(aclkit_layer)
  cmake_parse_arguments(ARG "CORE;STATIC;PYTHON" "DIR" "SOURCES;DEPENDS;LIBS" ${ARGN})
  string(TOLOWER ${ARG_DIR} name)
  set(target aclkit_${name})
  if(ARG_CORE)
    add_library(${target} OBJECT ${ARG_SOURCES})
    aclkit_include_root(${target} ${ARG_DIR} PUBLIC)
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    target_compile_definitions(${target} PRIVATE ACLKIT_BUILDING_LIBRARY=1)
    if(ACLKIT_THREAD_SAFE_PTR)
      target_compile_definitions(${target} PUBLIC FWK_THREAD_SAFE_PTR=1)
    endif()
    target_link_libraries(aclkit PUBLIC $<BUILD_INTERFACE:${target}>)
    set(scope PUBLIC)
  elseif(ARG_STATIC)
    add_library(${target} STATIC ${ARG_SOURCES})
    add_library(aclkit::${name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    aclkit_include_root(${target} ${ARG_DIR} PUBLIC)
    target_link_libraries(${target} PUBLIC aclkit::aclkit)
    set(scope PUBLIC)
  elseif(ARG_PYTHON)
    pybind11_add_module(${target} MODULE ${ARG_SOURCES})
    aclkit_include_root(${target} ${ARG_DIR} PRIVATE)
    set(scope PRIVATE)
  else()
    message(FATAL_ERROR "aclkit_layer(DIR ${ARG_DIR}): say CORE, STATIC or PYTHON")
  endif()
  target_compile_features(${target} PUBLIC cxx_std_20)
  # A core layer links the core layers it names; the others reach the core through the shared
  # library, and link the static layers they name.
  foreach(dep IN LISTS ARG_DEPENDS)
    string(TOLOWER ${dep} dep_name)
    get_target_property(dep_type aclkit_${dep_name} TYPE)
    if(ARG_CORE OR NOT dep_type STREQUAL "OBJECT_LIBRARY")
      target_link_libraries(${target} ${scope} aclkit_${dep_name})
    endif()
  endforeach()
  if(ARG_LIBS)
    target_link_libraries(${target} PRIVATE ${ARG_LIBS})
  endif()
  if(ARG_STATIC)
    aclkit_install_layer(${name} ${ARG_DIR} DEPENDS ${ARG_DEPENDS} LIBS ${ARG_LIBS})
  endif()
  aclkit_warnings(${target})
  if(NOT ARG_PYTHON)  # Debian's python3 cannot load a sanitized module
    aclkit_sanitize(${target})
  endif()
endfunction()

function(aclkit_finish_library)
  target_include_directories(aclkit PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  # A consumer gets the language level the headers are written in without asking for it.
  target_compile_features(aclkit PUBLIC cxx_std_20)
  aclkit_sanitize(aclkit)
endfunction()

# aclkit_test(NAME <name> SOURCES <files...> [LIBS <libs...>]): a GoogleTest executable
# registered with CTest.
function(aclkit_test)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE aclkit::aclkit aclkit_testsupport GTest::gtest GTest::gmock
                                            GTest::gtest_main ${ARG_LIBS})
  aclkit_warnings(${ARG_NAME})
  aclkit_sanitize(${ARG_NAME})
  # Labelled with its binary, so that a preset can run the tests of some binaries only.
  gtest_discover_tests(${ARG_NAME} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${ARG_NAME} ENVIRONMENT
                       "GTEST_DEATH_TEST_STYLE=threadsafe")
endfunction()

# aclkit_benchmark(NAME <name> SOURCES <files...>)
function(aclkit_benchmark)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE aclkit::aclkit benchmark::benchmark ${ARG_LIBS})
  aclkit_warnings(${ARG_NAME})
  aclkit_sanitize(${ARG_NAME})
endfunction()
