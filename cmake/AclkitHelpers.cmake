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

# aclkit_layer(NAME <layer> DIR <directory> SOURCES <files...> [DEPENDS <layers...>])
# An object library compiled into the shared aclkit library. Its headers are reached as
# "aclkit/<directory>/...", through an include root of its own in the build tree that holds
# only this layer; a layer therefore sees the headers of exactly the layers it names, and a
# consumer's own "model/Types.h" can never stand in for one of ours.
function(aclkit_layer)
  cmake_parse_arguments(ARG "" "NAME;DIR" "SOURCES;DEPENDS" ${ARGN})
  set(target aclkit_${ARG_NAME})
  set(root ${PROJECT_BINARY_DIR}/include/${ARG_DIR})
  file(MAKE_DIRECTORY ${root}/aclkit)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${ARG_DIR} ${root}/aclkit/${ARG_DIR} SYMBOLIC)
  add_library(${target} OBJECT ${ARG_SOURCES})
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
  # Trace lines and assertions print paths relative to the project, whichever way in.
  target_compile_options(${target} PUBLIC -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
                                          -fmacro-prefix-map=${root}/aclkit/=)
  target_compile_features(${target} PUBLIC cxx_std_20)
  # Only what the headers mark ACLKIT_EXPORT leaves the shared library.
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_definitions(${target} PRIVATE ACLKIT_BUILDING_LIBRARY=1)
  if(ACLKIT_THREAD_SAFE_PTR)
    target_compile_definitions(${target} PUBLIC FWK_THREAD_SAFE_PTR=1)
  endif()
  foreach(dep IN LISTS ARG_DEPENDS)
    target_link_libraries(${target} PUBLIC aclkit_${dep})
  endforeach()
  aclkit_warnings(${target})
  aclkit_sanitize(${target})
  target_link_libraries(aclkit PUBLIC $<BUILD_INTERFACE:${target}>)
endfunction()

# aclkit_client_layer(NAME <name> DIR <directory> SOURCES <files...> [DEPENDS <client layers...>]
#                     [LIBS <other libraries...>])
# A static library built on top of the shared aclkit library, as a program that installed it
# would build one: it links aclkit::aclkit, sees the library's headers as "aclkit/<layer>/...",
# and sees its own headers, and those of the client layers it names, the same way through an
# include root of its own. Being static and outside the shared library, it exports nothing.
function(aclkit_client_layer)
  cmake_parse_arguments(ARG "" "NAME;DIR" "SOURCES;DEPENDS;LIBS" ${ARGN})
  set(target aclkit_${ARG_NAME})
  set(root ${PROJECT_BINARY_DIR}/include/${ARG_DIR})
  file(MAKE_DIRECTORY ${root}/aclkit)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${ARG_DIR} ${root}/aclkit/${ARG_DIR} SYMBOLIC)
  add_library(${target} STATIC ${ARG_SOURCES})
  add_library(aclkit::${ARG_NAME} ALIAS ${target})
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
  target_compile_options(${target} PRIVATE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
                                           -fmacro-prefix-map=${root}/aclkit/=)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PUBLIC aclkit::aclkit)
  foreach(dep IN LISTS ARG_DEPENDS)
    target_link_libraries(${target} PUBLIC aclkit_${dep})
  endforeach()
  if(ARG_LIBS)
    target_link_libraries(${target} PRIVATE ${ARG_LIBS})
  endif()
  aclkit_warnings(${target})
  aclkit_sanitize(${target})
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
