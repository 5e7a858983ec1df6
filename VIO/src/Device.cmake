# Device calibration records and their conversion into a camera rig.
ar_add_component(ARVIODevice
  SOURCES
    src/DeviceCalibration.cc
  INCLUDE_DIR include
  DEPS ARCVStereoCamera)
target_include_directories(ARVIODevice PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/src)
target_link_libraries(ARVIO INTERFACE ARVIODevice)

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/DeviceCalibration_test.cc)
  ar_add_test(vio_device_test
    SOURCES src/DeviceCalibration_test.cc src/DeviceCalibration_c_test.c
    DEPS ARVIODevice)
endif()
