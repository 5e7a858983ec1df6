# CreateRectifyMap and the rectify map builder.
ar_add_component(ARVIORectify
  SOURCES
    src/RectifyMap.cc
    src/RectifyEntryPoint.cc
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
