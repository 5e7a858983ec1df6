# Shared by all three entry points: bounded writes into caller buffers, safe
# size conversions, and copying maps into plain arrays.
ar_add_component(ARVIOMapBuffers
  SOURCES
    src/EntryPointRules.cc
    src/MapBuffers.cc
  INCLUDE_DIR include
  DEPS ARCVImage ARMath ARCommon)
target_include_directories(ARVIOMapBuffers PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/src)
target_link_libraries(ARVIO INTERFACE ARVIOMapBuffers)

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/UndistortMap.cc)
  # The undistortion map builder and CreateUndistortMap.
  set(_ar_undistort_sources src/UndistortMap.cc)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/UndistortMapEntry.cc)
    list(APPEND _ar_undistort_sources src/UndistortMapEntry.cc)
  endif()
  ar_add_component(ARVIOUndistort
    SOURCES ${_ar_undistort_sources}
    INCLUDE_DIR include
    DEPS ARVIOMapBuffers ARVIODevice ARCVStereoCamera ARCVCamera ARCVImage ARCameraModel ARMath
         ARCommon)
  target_include_directories(ARVIOUndistort PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/src)
  target_link_libraries(ARVIO INTERFACE ARVIOUndistort)
endif()

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/EntryPointRules_test.cc)
  ar_add_test(vio_undistort_rules_test
    SOURCES src/EntryPointRules_test.cc src/MapBuffers_test.cc
    DEPS ARVIOMapBuffers)
endif()

if(TARGET ARVIOUndistort AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/UndistortMap_test.cc)
  ar_add_test(vio_undistort_map_test
    SOURCES src/UndistortMap_test.cc
    DEPS ARVIOUndistort)
endif()

if(TARGET ARVIOUndistort AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/UndistortMapEntry_test.cc)
  ar_add_test(vio_undistort_entry_test
    SOURCES src/UndistortMapEntry_test.cc
    DEPS ARVIOUndistort)
endif()

# A C program (not C++) that includes the public header and links the shared
# library, so the entry point's C linkage and the header's C compatibility are
# exercised as a C caller sees them.
if(AR_BUILD_TESTS AND TARGET ARVIOUndistort
   AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/UndistortCConsumer_test.c)
  add_executable(vio_undistort_c_consumer_test src/UndistortCConsumer_test.c)
  set_target_properties(vio_undistort_c_consumer_test PROPERTIES C_STANDARD 11 C_STANDARD_REQUIRED ON
                                                                 C_EXTENSIONS OFF LINKER_LANGUAGE C)
  target_link_libraries(vio_undistort_c_consumer_test PRIVATE StereoRectifyWrapper m)
  if(AR_SANITIZE AND CMAKE_C_COMPILER_ID STREQUAL "Clang")
    # The library is C++: clang's C driver leaves out the C++ half of the
    # UBSan runtime that the library's checks call into.
    target_link_options(vio_undistort_c_consumer_test PRIVATE -fsanitize-link-c++-runtime)
    target_link_libraries(vio_undistort_c_consumer_test PRIVATE stdc++)
  endif()
  add_test(NAME vio_undistort_c_consumer_test COMMAND vio_undistort_c_consumer_test)
  set_tests_properties(vio_undistort_c_consumer_test PROPERTIES TIMEOUT 600)
endif()
