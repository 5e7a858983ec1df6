# The one shared library: every component, whole, behind hidden visibility.
get_property(_ar_components GLOBAL PROPERTY AR_COMPONENTS)
get_property(_ar_include_dirs GLOBAL PROPERTY AR_INCLUDE_DIRS)
list(REMOVE_DUPLICATES _ar_include_dirs)

add_library(StereoRectifyWrapper SHARED cmake/empty.cc)
foreach(_component IN LISTS _ar_components)
  # The components' objects themselves, so nothing is dropped for being
  # unreferenced inside the library.
  target_sources(StereoRectifyWrapper PRIVATE $<TARGET_OBJECTS:${_component}>)
  add_dependencies(StereoRectifyWrapper ${_component})
endforeach()
# Linking the archives as well brings in their own dependencies (tinyxml2,
# threads, Android's liblog); their members are already defined by the objects
# above, so none is pulled in twice.
target_link_libraries(StereoRectifyWrapper PRIVATE ${_ar_components})
target_link_libraries(StereoRectifyWrapper PUBLIC tinyxml2::tinyxml2 Threads::Threads)
# Every symbol must resolve inside the library or its declared dependencies.
# Sanitizer runtimes are linked into the executable, not the shared library,
# so the check is left out of sanitized builds.
if(NOT AR_SANITIZE AND NOT AR_FUZZ AND NOT AR_TSAN)
  target_link_options(StereoRectifyWrapper PRIVATE -Wl,--no-undefined)
endif()
# Only the library's own interface is exported (see the script's comment).
target_link_options(StereoRectifyWrapper PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/StereoRectifyWrapper.map)
set_property(TARGET StereoRectifyWrapper APPEND PROPERTY
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/StereoRectifyWrapper.map)
foreach(_dir IN LISTS _ar_include_dirs)
  target_include_directories(StereoRectifyWrapper PUBLIC $<BUILD_INTERFACE:${_dir}>)
  install(DIRECTORY ${_dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
endforeach()
target_include_directories(StereoRectifyWrapper INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# Debian keeps Android's liblog outside the loader's search path; remember
# where it was linked from so the installed library still finds it.
set_target_properties(StereoRectifyWrapper PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  INSTALL_RPATH_USE_LINK_PATH ON)
add_library(StereoRectifyWrapper::StereoRectifyWrapper ALIAS StereoRectifyWrapper)

install(TARGETS StereoRectifyWrapper EXPORT StereoRectifyWrapperTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT StereoRectifyWrapperTargets NAMESPACE StereoRectifyWrapper::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/StereoRectifyWrapper)

include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/StereoRectifyWrapperConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/StereoRectifyWrapperConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/StereoRectifyWrapper)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/StereoRectifyWrapperConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/StereoRectifyWrapperConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/StereoRectifyWrapperConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/StereoRectifyWrapper)

configure_file(cmake/StereoRectifyWrapper.pc.in ${CMAKE_CURRENT_BINARY_DIR}/StereoRectifyWrapper.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/StereoRectifyWrapper.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
