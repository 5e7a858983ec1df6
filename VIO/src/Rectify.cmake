# CreateRectifyMap and the rectify map builder.
ar_add_component(ARVIORectify
  SOURCES
    src/RectifyMap.cc
    src/RectifyEntryPoint.cc
    src/RectifiedCameraRecord.cc
  INCLUDE_DIR include
  DEPS ARCVRectify ARVIOMapBuffers ARVIODevice ARCVImage ARCVStereoCamera ARCVCamera ARMath ARCommon)
target_include_directories(ARVIORectify PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/src)
target_link_libraries(ARVIO INTERFACE ARVIORectify)

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/RectifyEntryPoint_test.cc)
  ar_add_test(vio_rectify_entry_test
    SOURCES src/RectifyEntryPoint_test.cc
    DEPS ARVIORectify)
endif()
if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/RectifyMap_test.cc)
  ar_add_test(vio_rectify_map_test
    SOURCES src/RectifyMap_test.cc
    DEPS ARVIORectify)
endif()

# The vector map kernel against the scalar reference, for all three builders.
if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/MapKernel_test.cc)
  ar_add_test(vio_map_kernel_test
    SOURCES src/MapKernel_test.cc
    DEPS ARVIORectify ARVIOUndistort ARVIOSeeThrough)
endif()
