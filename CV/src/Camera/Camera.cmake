# Intrinsic camera: lens-model splines, the camera itself and the
# camera-coordinate helpers for client code.
ar_add_component(ARCVCamera
  SOURCES
    src/Camera/Camera.cc
    src/Camera/Hermite.cc
    src/Camera/CameraUtil.cc
  INCLUDE_DIR include
  DEPS ARCameraModel ARMath ARCommon tinyxml2::tinyxml2)
target_link_libraries(ARCV INTERFACE ARCVCamera)

# <source stem>:<test name>; only tests whose file exists are added.
foreach(_entry Hermite:hermite Camera:intrinsics CameraUtil:util)
  string(REPLACE ":" ";" _pair ${_entry})
  list(GET _pair 0 _stem)
  list(GET _pair 1 _name)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/Camera/${_stem}_test.cc)
    ar_add_test(cv_camera_${_name}_test SOURCES src/Camera/${_stem}_test.cc DEPS ARCVCamera)
  endif()
endforeach()
