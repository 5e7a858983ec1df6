# CreateFixedPlaneVSTMaps, the see-through map builder and the rig re-origin.
ar_add_component(ARVIOSeeThrough
  SOURCES
    src/VSTMap.cc
    src/VSTRig.cc
    src/SeeThroughEntryPoint.cc
  INCLUDE_DIR include
  DEPS ARCVSeeThrough ARVIOMapBuffers ARVIODevice ARCVImage ARCVStereoCamera ARCVCamera ARCameraModel
       ARMath ARCommon)
target_include_directories(ARVIOSeeThrough PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/src)
target_link_libraries(ARVIO INTERFACE ARVIOSeeThrough)

# <source stem>:<test name>; only tests whose file exists are added.
foreach(_entry VSTMap:map VSTRig:rig SeeThroughEntryPoint:entry)
  string(REPLACE ":" ";" _pair ${_entry})
  list(GET _pair 0 _stem)
  list(GET _pair 1 _name)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/${_stem}_test.cc)
    ar_add_test(vio_vst_${_name}_test SOURCES src/${_stem}_test.cc DEPS ARVIOSeeThrough)
  endif()
endforeach()
