# ValidateDeviceCalibration: the entry points' conversion and rectification
# target in their checked variants.
ar_add_component(ARVIOValidate
  SOURCES
    src/ValidateDeviceCalibration.cc
  INCLUDE_DIR include
  DEPS ARVIORectify ARVIODevice ARCVRectify ARCVStereoCamera ARCVCamera ARCameraModel ARMath ARCommon)
target_include_directories(ARVIOValidate PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/src)
target_link_libraries(ARVIO INTERFACE ARVIOValidate)

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/ValidateDeviceCalibration_test.cc)
  ar_add_test(vio_validate_test
    SOURCES src/ValidateDeviceCalibration_test.cc
    DEPS ARVIOValidate ARVIORectify ARVIOUndistort ARVIOSeeThrough)
endif()
