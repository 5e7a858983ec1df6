# Rectified stereo target calibration, its self-checks and midpoint triangulation.
ar_add_component(ARCVRectify
  SOURCES
    src/Stereo/MidPoint.cc
    src/Stereo/RectifyChecks.cc
    src/Stereo/TargetCalibration.cc
  INCLUDE_DIR include
  DEPS ARCVStereoCamera ARCVCamera ARCameraModel ARMath ARCommon)
target_link_libraries(ARCV INTERFACE ARCVRectify)

# Target calibration, its self-checks and the midpoint triangulation they use.
if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/Stereo/TargetCalibration_test.cc)
  ar_add_test(cv_rectify_target_test
    SOURCES src/Stereo/TargetCalibration_test.cc
    DEPS ARCVRectify)
endif()
