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

ar_add_test(cv_camera_hermite_test SOURCES src/Camera/Hermite_test.cc DEPS ARCVCamera)
ar_add_test(cv_camera_intrinsics_test SOURCES src/Camera/Camera_test.cc DEPS ARCVCamera)
ar_add_test(cv_camera_util_test SOURCES src/Camera/CameraUtil_test.cc DEPS ARCVCamera)
if(TARGET cv_camera_intrinsics_test)
  # The shared closed-form lenses describe lenses in the device record types.
  target_include_directories(cv_camera_intrinsics_test PRIVATE ${PROJECT_SOURCE_DIR}/VIO/include)
endif()
