# ctest driver: install, then configure, build and run the consumer project.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
if(EXTRA_FLAGS)
  set(sanitized ON)
else()
  set(sanitized OFF)
endif()

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_C_COMPILER=${C_COMPILER}
    "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}" "-DCMAKE_C_FLAGS=${EXTRA_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${EXTRA_FLAGS}"
    -DAR_PREFIX=${prefix}
    -DAR_SANITIZED=${sanitized})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
set(ENV{ASAN_OPTIONS} "detect_leaks=0")
file(GLOB consumers ${WORK_DIR}/build/consumer_*)
list(LENGTH consumers n)
if(n LESS 3)
  message(FATAL_ERROR "expected the find_package, pkg-config and C consumers, found: ${consumers}")
endif()
foreach(exe IN LISTS consumers)
  run(${exe})
  message(STATUS "${exe}: ok")
endforeach()
