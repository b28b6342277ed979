# Build rules shared by every folder: object libraries, tests, warnings, sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

find_program(LUMARO_CCACHE ccache)
if(LUMARO_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER "${LUMARO_CCACHE}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${LUMARO_CCACHE}")
endif()

# The folder with the real stores that some tests use; those tests skip where it is absent.
set(LUMARO_DATA_DIR "${PROJECT_SOURCE_DIR}/../shared/data" CACHE PATH "Real stores for tests; may be absent")

if(LUMARO_SANITIZE)
  add_compile_options(-fsanitize=${LUMARO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -g)
  add_link_options(-fsanitize=${LUMARO_SANITIZE})
endif()

function(lumaro_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX /permissive- /utf-8 /external:anglebrackets /external:W0
        /wd4251 /wd4275)
    target_compile_definitions(${target} PRIVATE NOMINMAX WIN32_LEAN_AND_MEAN _CRT_SECURE_NO_WARNINGS)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion
        -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual)
    if(MINGW)
      # GCC 12 sees overlaps in strings that it has inlined (its bug 105329).
      target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
    if(WIN32)
      target_compile_definitions(${target} PRIVATE NOMINMAX WIN32_LEAN_AND_MEAN)
    endif()
  endif()
endfunction()

# lumaro_objects(NAME SOURCES … [HEADERS …] [LINK …]): object library lumaro_NAME. The DLL and the tests are
# linked from the same objects, so nothing is exported for a test's sake. Each header is also compiled alone.
function(lumaro_objects name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;LINK" ${ARGN})
  add_library(lumaro_${name} OBJECT ${ARG_SOURCES} ${ARG_HEADERS})
  target_include_directories(lumaro_${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_compile_definitions(lumaro_${name} PRIVATE LUMARO_EXPORTS INTERFACE LUMARO_STATIC)
  target_link_libraries(lumaro_${name} PUBLIC ${ARG_LINK})
  lumaro_warnings(lumaro_${name})
  if(LUMARO_BUILD_TESTS AND ARG_HEADERS AND NOT LUMARO_SANITIZE)
    lumaro_header_checks(${name} ${ARG_HEADERS})
  endif()
endfunction()

# One generated source per header: every header compiles on its own.
function(lumaro_header_checks name)
  set(sources)
  foreach(header IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH header BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" NORMALIZE)
    cmake_path(RELATIVE_PATH header BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE relative)
    string(MAKE_C_IDENTIFIER "${relative}" id)
    set(source "${PROJECT_BINARY_DIR}/header-checks/${id}.cpp")
    file(CONFIGURE OUTPUT "${source}" CONTENT "#include <${relative}>\n" @ONLY)
    list(APPEND sources "${source}")
  endforeach()
  add_library(headers_${name} OBJECT ${sources})
  target_link_libraries(headers_${name} PRIVATE lumaro_${name})
  lumaro_warnings(headers_${name})
endfunction()

# lumaro_test(NAME SOURCES … OBJECTS core … [LINK …] [GPU]): one GoogleTest executable test_NAME. A GPU test
# runs once with each of Wine's Direct3D back ends; on Windows itself it runs once.
function(lumaro_test name)
  cmake_parse_arguments(ARG "GPU" "" "SOURCES;OBJECTS;LINK" ${ARGN})
  set(target test_${name})
  add_executable(${target} ${ARG_SOURCES})
  list(TRANSFORM ARG_OBJECTS PREPEND lumaro_ OUTPUT_VARIABLE objects)
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_compile_definitions(${target} PRIVATE LUMARO_STATIC
      LUMARO_DATA_DIR="${LUMARO_DATA_DIR}" LUMARO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(${target} PRIVATE ${objects} ${ARG_LINK} lumaro_gtest)
  lumaro_warnings(${target})
  if(ARG_GPU AND CMAKE_CROSSCOMPILING)
    foreach(backend IN ITEMS gl vulkan)
      add_test(NAME ${name}_${backend} COMMAND ${target})
      set_tests_properties(${name}_${backend} PROPERTIES LABELS gpu TIMEOUT 900
          ENVIRONMENT "WINE_D3D_CONFIG=renderer=${backend}")
    endforeach()
  else()
    add_test(NAME ${name} COMMAND ${target})
    set_tests_properties(${name} PROPERTIES TIMEOUT 900)
    if(ARG_GPU)
      set_tests_properties(${name} PROPERTIES LABELS gpu)
    else()
      set_tests_properties(${name} PROPERTIES LABELS unit)
    endif()
  endif()
endfunction()
