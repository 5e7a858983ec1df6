# ctest driver: the shared library's dynamic symbol table, demangled, must
# hold every required name of the list and nothing outside it.
#
#   cmake -DNM=<nm for the library's architecture> -DLIBRARY=<.so>
#         -DLIST=<exported_symbols.txt> -P ExportedSymbols.cmake
#
# List lines are demangled names; "? " before a name marks one that a
# compiler may or may not emit (template members and inline functions of
# exported classes, which differ between g++ and clang and between Debug and
# Release). Lines starting with "#" are comments.
cmake_minimum_required(VERSION 3.25)
foreach(var NM LIBRARY LIST)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()

execute_process(COMMAND ${NM} -D --defined-only -C --format=just-symbols ${LIBRARY}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed (${rc}): ${err}")
endif()
# Names carry no newline but may carry ';' (never in C++ symbols) and
# brackets, which CMake lists keep as they are.
string(REPLACE "\n" ";" exported "${out}")
list(FILTER exported EXCLUDE REGEX "^$")
list(REMOVE_DUPLICATES exported)

file(STRINGS ${LIST} lines)
set(required "")
set(allowed "")
foreach(line IN LISTS lines)
  if(line MATCHES "^#" OR line STREQUAL "")
    continue()
  elseif(line MATCHES "^\\? (.*)$")
    list(APPEND allowed "${CMAKE_MATCH_1}")
  else()
    list(APPEND required "${line}")
    list(APPEND allowed "${line}")
  endif()
endforeach()
list(LENGTH required n_required)
if(n_required LESS 4)
  message(FATAL_ERROR "${LIST} lists ${n_required} required names; expected at least the C entry points")
endif()

set(unexpected ${exported})
list(REMOVE_ITEM unexpected ${allowed})
set(missing ${required})
list(REMOVE_ITEM missing ${exported})

list(LENGTH exported n_exported)
if(unexpected OR missing)
  list(SORT unexpected)
  list(SORT missing)
  string(REPLACE ";" "\n  " unexpected_text "${unexpected}")
  string(REPLACE ";" "\n  " missing_text "${missing}")
  message(FATAL_ERROR "${LIBRARY} exports ${n_exported} names.\n"
    "Exported but not in ${LIST}:\n  ${unexpected_text}\n"
    "Required by ${LIST} but not exported:\n  ${missing_text}\n")
endif()
message(STATUS "${n_exported} exported names, all listed; ${n_required} required names present")
