# Cameras with identity and pose, rigs of them, and the rig calibration file.
ar_add_component(ARCVStereoCamera
  SOURCES
    src/Camera/StereoCamera.cc
    src/Camera/CalibrationFile.cc
  INCLUDE_DIR include
  DEPS ARCVCamera ARCameraModel ARMath ARCommon tinyxml2::tinyxml2)
target_link_libraries(ARCV INTERFACE ARCVStereoCamera)

foreach(_entry StereoCamera:camera CalibrationFile:file)
  string(REPLACE ":" ";" _pair ${_entry})
  list(GET _pair 0 _stem)
  list(GET _pair 1 _name)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/Camera/${_stem}_test.cc)
    ar_add_test(cv_rig_${_name}_test SOURCES src/Camera/${_stem}_test.cc DEPS ARCVStereoCamera)
  endif()
endforeach()
if(TARGET cv_rig_file_test)
  # The shared record-rig test support supplies one realistic lens per model.
  target_include_directories(cv_rig_file_test PRIVATE ${PROJECT_SOURCE_DIR}/VIO/include)
endif()
