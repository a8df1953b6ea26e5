# Small helpers that keep every target's settings in one place.

# Warnings and sanitizers for our own code.
function(orvan_apply_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  # GCC 12 at -O3 reports `"literal" + std::string&&` as an overlapping copy (a known false
  # positive of its -Wrestrict); with warnings as errors it would refuse every optimised build.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
  endif()
  if(ORVAN_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

if(ORVAN_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# orvan_collect_sources(<out-var> <dir>...): the C and C++ sources below each directory.
function(orvan_collect_sources out)
  set(result)
  foreach(dir IN LISTS ARGN)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS "${dir}/*.cpp" "${dir}/*.c" "${dir}/*.h")
    list(APPEND result ${found})
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# orvan_add_test(NAME <exe> LABEL <label> SOURCES <files...> LIBS <libs...>): one GoogleTest
# executable registered with CTest; every test case in it carries the label.
function(orvan_add_test)
  cmake_parse_arguments(T "" "NAME;LABEL;TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT T_SOURCES)
    return()
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} GTest::gmock GTest::gtest GTest::gtest_main)
  orvan_apply_warnings(${T_NAME})
  gtest_discover_tests(${T_NAME}
    DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS ${T_LABEL} TIMEOUT ${T_TIMEOUT}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
endfunction()
