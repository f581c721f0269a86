# What every target of the project has in common: language level, warnings, sanitizers.

if(PROJECT_IS_TOP_LEVEL)
  find_program(CCACHE_PROGRAM ccache)
  if(CCACHE_PROGRAM)
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  endif()
endif()

add_library(vorelutil_flags INTERFACE)
target_compile_features(vorelutil_flags INTERFACE cxx_std_17 c_std_99)
# A fused multiply-add would round once where the stated steps round twice.
target_compile_options(vorelutil_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -ffp-contract=off
  $<$<BOOL:${VORELUTIL_WARNINGS_AS_ERRORS}>:-Werror>)
if(VORELUTIL_SANITIZE)
  target_compile_options(vorelutil_flags INTERFACE
    -fsanitize=${VORELUTIL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vorelutil_flags INTERFACE -fsanitize=${VORELUTIL_SANITIZE})
endif()

# Settings of a target of ours: flags for itself alone, hidden symbols, moc.
function(vorelutil_target_defaults target)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:vorelutil_flags>)
  set_target_properties(${target} PROPERTIES
    AUTOMOC ON
    CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
    C_STANDARD 99 C_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
endfunction()

# Sources of the library, called in the folder of a subsystem.
#   vorelutil_sources(PUBLIC_HEADERS a.h ... SOURCES a.cpp ...)
function(vorelutil_sources)
  cmake_parse_arguments(ARG "" "" "PUBLIC_HEADERS;SOURCES" ${ARGN})
  list(TRANSFORM ARG_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  list(TRANSFORM ARG_PUBLIC_HEADERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(vorelutil_objects PRIVATE ${ARG_SOURCES} ${ARG_PUBLIC_HEADERS})
  set_property(GLOBAL APPEND PROPERTY VORELUTIL_PUBLIC_HEADERS ${ARG_PUBLIC_HEADERS})
endfunction()
