# Float images over own or caller memory, and their tests.
ar_add_component(ARCVImage
  SOURCES
    src/Image/Image.cc
  INCLUDE_DIR include
  DEPS ARMath ARCommon)
target_link_libraries(ARCV INTERFACE ARCVImage)

if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/src/Image/Image_test.cc)
  ar_add_test(cv_image_test
    SOURCES src/Image/Image_test.cc
    DEPS ARCVImage)
endif()
