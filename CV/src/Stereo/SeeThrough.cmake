# Calibration of the display eyes for video see-through.
ar_add_component(ARCVSeeThrough
  SOURCES
    src/Stereo/SeeThrough.cc
  INCLUDE_DIR include
  DEPS ARCVStereoCamera ARCVCamera ARCameraModel ARMath ARCommon)
# The eye records are the public C interface's display records.
target_include_directories(ARCVSeeThrough PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/VIO/include>)
target_link_libraries(ARCV INTERFACE ARCVSeeThrough)

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/Stereo/SeeThrough_test.cc)
  ar_add_test(cv_seethrough_calibration_test
    SOURCES src/Stereo/SeeThrough_test.cc
    DEPS ARCVSeeThrough)
endif()
