# Shared by all three entry points: bounded writes into caller buffers, safe
# size conversions, copying maps into plain arrays, and the vector map kernel
# (Highway, one source compiled per instruction set, chosen at run time).
find_package(hwy CONFIG REQUIRED)
ar_add_component(ARVIOMapBuffers
  SOURCES
    src/EntryPointRules.cc
    src/MapBuffers.cc
    src/MapKernel.cc
  INCLUDE_DIR include
  DEPS ARCVCamera ARCVImage ARMath ARCommon hwy::hwy)
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

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/MapBuffers_test.cc)
  ar_add_test(vio_undistort_rules_test
    SOURCES src/MapBuffers_test.cc
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

# g++ 12 for AArch64 stops with an internal compiler error when
# AddressSanitizer's use-after-scope check instruments the SVE copies of the
# vector kernel; the rest of ASan still applies to it.
if(AR_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)")
  set_source_files_properties(src/MapKernel.cc PROPERTIES COMPILE_OPTIONS -fno-sanitize-address-use-after-scope)
endif()
