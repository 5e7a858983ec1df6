# Helpers that keep every module's CMakeLists.txt to a list of files.
#
# ar_add_component(<name> [SOURCES ...] [INCLUDE_DIR dir] [DEPS ...])
#   A static, position-independent library that becomes part of
#   libStereoRectifyWrapper.so. A component without sources is an INTERFACE
#   library (headers only). INCLUDE_DIR is the module's public include root and
#   is installed as it is laid out.
#
# ar_add_test(<name> SOURCES ... [DEPS ...])
#   A GoogleTest executable registered with ctest. Tests link the components
#   statically, so they see internal symbols that the shared library hides.

define_property(GLOBAL PROPERTY AR_COMPONENTS BRIEF_DOCS "library components" FULL_DOCS "library components")
define_property(GLOBAL PROPERTY AR_INCLUDE_DIRS BRIEF_DOCS "public include roots" FULL_DOCS "public include roots")

function(ar_add_component name)
  cmake_parse_arguments(ARG "" "INCLUDE_DIR" "SOURCES;DEPS" ${ARGN})
  if(ARG_SOURCES)
    add_library(${name} STATIC ${ARG_SOURCES})
    set(scope PUBLIC)
    set_property(GLOBAL APPEND PROPERTY AR_COMPONENTS ${name})
  else()
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  if(ARG_INCLUDE_DIR)
    target_include_directories(${name} ${scope}
      $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/${ARG_INCLUDE_DIR}>)
    set_property(GLOBAL APPEND PROPERTY AR_INCLUDE_DIRS ${CMAKE_CURRENT_SOURCE_DIR}/${ARG_INCLUDE_DIR})
  endif()
  target_include_directories(${name} ${scope}
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/Common/include>)
  if(ARG_DEPS)
    target_link_libraries(${name} ${scope} ${ARG_DEPS})
  endif()
endfunction()

function(ar_add_test name)
  if(NOT AR_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gtest_main Threads::Threads)
  add_test(NAME ${name} COMMAND ${name})
  # Under an emulator (a cross build run through qemu-user) a program runs
  # several times slower than natively.
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set_tests_properties(${name} PROPERTIES TIMEOUT 1800)
  else()
    set_tests_properties(${name} PROPERTIES TIMEOUT 600)
  endif()
endfunction()
