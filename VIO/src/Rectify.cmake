# CreateRectifyMap and the rectify map builder.
ar_add_component(ARVIORectify
  SOURCES
    src/RectifyMap.cc
    src/RectifyEntryPoint.cc
  INCLUDE_DIR include
  DEPS ARCVRectify ARVIOMapBuffers ARVIODevice ARCVImage ARCVStereoCamera ARCVCamera ARMath ARCommon)
target_include_directories(ARVIORectify PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/src)
target_link_libraries(ARVIO INTERFACE ARVIORectify)
