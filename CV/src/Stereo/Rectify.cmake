# Rectified stereo target calibration, its self-checks and midpoint triangulation.
ar_add_component(ARCVRectify
  SOURCES
    src/Stereo/MidPoint.cc
    src/Stereo/RectifyChecks.cc
    src/Stereo/TargetCalibration.cc
  INCLUDE_DIR include
  DEPS ARCVStereoCamera ARCVCamera ARCameraModel ARMath ARCommon)
target_link_libraries(ARCV INTERFACE ARCVRectify)
