# Shared target conventions: one library per top-level folder, sources and tests side by side.

set(TIDEWATCH_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
    -Wcast-align -Woverloaded-virtual -Wimplicit-fallthrough -Werror)

# GCC 12 reports string concatenation inside libstdc++ as overlapping copies at -O3 (GCC bug
# 105329); the diagnostic is noise there and nowhere else useful to us.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 14)
  list(APPEND TIDEWATCH_WARNINGS -Wno-restrict)
endif()

function(tidewatch_warnings target)
  target_compile_options(${target} PRIVATE ${TIDEWATCH_WARNINGS})
endfunction()

# tidewatch_library(NAME <name> [DEPS <targets>...] [PLATFORM_DIRS <dirs>...])
# Collects <folder>/*.cpp, internal/*.cpp and the platform folder chosen for this system.
function(tidewatch_library)
  cmake_parse_arguments(ARG "" "NAME" "DEPS;PLATFORM_DIRS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS
       "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp"
       "${CMAKE_CURRENT_SOURCE_DIR}/internal/*.cpp")
  foreach(dir IN LISTS ARG_PLATFORM_DIRS)
    file(GLOB platform_sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp")
    list(APPEND sources ${platform_sources})
  endforeach()
  add_library(${ARG_NAME} STATIC ${sources})
  target_include_directories(${ARG_NAME} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${ARG_NAME} PUBLIC ${ARG_DEPS})
  tidewatch_warnings(${ARG_NAME})
endfunction()

# tidewatch_tests(NAME <name> DEPS <targets>...)
# Builds <folder>/tests/*_test.cpp into one GoogleTest executable. Tests whose name
# begins with "Live" touch the real machine (processes, sockets) and get the label "live".
function(tidewatch_tests)
  cmake_parse_arguments(ARG "" "NAME" "DEPS" ${ARGN})
  if(NOT TIDEWATCH_BUILD_TESTS)
    return()
  endif()
  file(GLOB test_sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/tests/*_test.cpp")
  if(NOT test_sources)
    return()
  endif()
  add_executable(${ARG_NAME} ${test_sources})
  target_link_libraries(${ARG_NAME} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(${ARG_NAME} PRIVATE
    TIDEWATCH_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/tests/data"
    TIDEWATCH_BINARY_DIR="${PROJECT_BINARY_DIR}")
  tidewatch_warnings(${ARG_NAME})
  gtest_discover_tests(${ARG_NAME} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
