# Cameras with identity and pose, rigs of them, and the rig calibration file.
ar_add_component(ARCVStereoCamera
  SOURCES
    src/Camera/StereoCamera.cc
    src/Camera/CalibrationFile.cc
  INCLUDE_DIR include
  DEPS ARCVCamera ARCameraModel ARMath ARCommon tinyxml2::tinyxml2)
target_link_libraries(ARCV INTERFACE ARCVStereoCamera)
