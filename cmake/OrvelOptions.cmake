# What every target of the project is compiled with, as one INTERFACE target instead of global flags.
option(ORVEL_WERROR "Treat compiler warnings as errors" OFF)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

set(CMAKE_AUTOMOC ON)
set(CMAKE_AUTORCC ON)
set(CMAKE_CXX_EXTENSIONS OFF)

add_library(orvel_options INTERFACE)
target_compile_features(orvel_options INTERFACE cxx_std_17)
target_include_directories(orvel_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_definitions(orvel_options INTERFACE
  QT_NO_CAST_TO_ASCII
  QT_NO_CAST_FROM_ASCII
  QT_NO_CAST_FROM_BYTEARRAY
  QT_NO_FOREACH
  QT_NO_URL_CAST_FROM_STRING
  QT_STRICT_ITERATORS
)
target_compile_options(orvel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
  $<$<BOOL:${ORVEL_WERROR}>:-Werror>
  # One minds Qt's macros, the other takes several files compiled as one for a header.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${CMAKE_UNITY_BUILD}>>:-Wno-subobject-linkage>
)

set(ORVEL_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
if(ORVEL_SANITIZE)
  set(sanitize -fsanitize=${ORVEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(orvel_options INTERFACE ${sanitize})
  target_link_options(orvel_options INTERFACE ${sanitize})
endif()

# One folder, one library: its SOURCES, and under LINK what it stands on.
function(orvel_add_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC orvel_options orvel_base ${arg_LINK})
endfunction()
